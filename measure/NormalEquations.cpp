// SPDX-License-Identifier: Apache-2.0
#include "measure/NormalEquations.h"

#include <limits>

namespace reflyze {
namespace {

using Matrix = Eigen::SparseMatrix<double>;
using Solver = Eigen::SimplicialLDLT<Matrix, Eigen::Upper, Eigen::NaturalOrdering<int>>;

class SolvedCertainty : public Certainty {
 public:
  explicit SolvedCertainty(const Matrix& matrix) : count_(matrix.rows()), solver_(matrix) {}
  double VarianceOf(const Weights& by) const override {
    constexpr double kUnknown = std::numeric_limits<double>::infinity();
    if (solver_.info() != Eigen::Success) return kUnknown;
    Eigen::VectorXd weights = Eigen::VectorXd::Zero(count_);
    for (const auto& [parameter, weight] : by) weights(parameter) += weight;
    const Eigen::VectorXd solved = solver_.solve(weights);
    const double variance = weights.dot(solved);
    return variance > 0.0 ? variance : kUnknown;  // not below 0 but by lost digits
  }

 private:
  Eigen::Index count_;
  Solver solver_;
};

// Rows are short, and lie apart from the slopes: two at a time, without asking.
inline void AddTimes(double factor, const double* from, std::size_t count, double* to) {
  std::size_t k = 0;
  for (; k + 2 <= count; k += 2) {
    const double one = to[k] + factor * from[k], other = to[k + 1] + factor * from[k + 1];
    to[k] = one;
    to[k + 1] = other;
  }
  if (k < count) to[k] += factor * from[k];
}

}  // namespace

NormalEquations::NormalEquations(std::size_t parameters, std::size_t shared)
    : parameters_(parameters),
      band_(parameters - shared),
      rows_(band_),
      shared_(shared, std::vector<double>(parameters, 0.0)),
      gradient_(Eigen::VectorXd::Zero(static_cast<Eigen::Index>(parameters))) {
  for (std::vector<double>& row : rows_) row.resize(1);
}

void NormalEquations::Add(const Slopes& slopes, std::size_t shared, double weight, double pull) {
  const std::size_t first = 4 * slopes.first, count = slopes.count;
  const double* const own = slopes.own.data();
  double* const gradient = gradient_.data();
  for (std::size_t i = 0; i < count; ++i) {
    if (own[i] == 0.0) continue;
    const double weighted = weight * own[i];
    gradient[first + i] += own[i] * pull;
    std::vector<double>& row = rows_[first + i];
    if (row.size() < i + 1) row.insert(row.begin(), i + 1 - row.size(), 0.0);
    AddTimes(weighted, own, i + 1, row.data() + (row.size() - i - 1));
  }
  for (std::size_t i = 0; i < shared; ++i) {
    const double weighted = weight * slopes.receiver[i];
    gradient[band_ + i] += slopes.receiver[i] * pull;
    AddTimes(weighted, own, count, shared_[i].data() + first);
    AddTimes(weighted, slopes.receiver, i + 1, shared_[i].data() + band_);
  }
}

void NormalEquations::AddPrior(int parameter, double weight, double off) {
  rows_[static_cast<std::size_t>(parameter)].back() += weight;
  gradient_(parameter) -= weight * off;
}

// A row, up to its diagonal, is a column of the upper triangle.
Eigen::SparseMatrix<double> NormalEquations::Matrix(double damping) const {
  const auto count = static_cast<Eigen::Index>(parameters_);
  std::size_t values = shared_.size() * parameters_;
  for (const std::vector<double>& row : rows_) values += row.size();
  Eigen::SparseMatrix<double> matrix(count, count);
  matrix.reserve(static_cast<Eigen::Index>(values));
  const auto add = [&](std::size_t row, std::size_t first, const double* of) {
    const auto column = static_cast<Eigen::Index>(row);
    matrix.startVec(column);
    for (std::size_t k = first; k < row; ++k)
      matrix.insertBack(static_cast<Eigen::Index>(k), column) = of[k - first];
    // What no sample shows stays as it is.
    const double diagonal = of[row - first];
    matrix.insertBack(column, column) = diagonal == 0.0 ? 1.0 : diagonal * (1.0 + damping);
  };
  for (std::size_t row = 0; row < band_; ++row) add(row, row + 1 - rows_[row].size(), rows_[row].data());
  for (std::size_t i = 0; i < shared_.size(); ++i) add(band_ + i, 0, shared_[i].data());
  matrix.finalize();
  return matrix;
}

void NormalEquations::Hold(int parameter) {
  const auto held = static_cast<std::size_t>(parameter);
  gradient_(parameter) = 0.0;
  for (std::size_t row = held; row < band_; ++row) {
    std::vector<double>& values = rows_[row];
    if (row == held) std::fill(values.begin(), values.end(), 0.0);
    if (row - held < values.size()) values[values.size() - 1 - (row - held)] = 0.0;
  }
  for (std::size_t row = 0; row < shared_.size(); ++row) {
    if (band_ + row == held) std::fill(shared_[row].begin(), shared_[row].end(), 0.0);
    shared_[row][held] = 0.0;
  }
}

void NormalEquations::Join(std::size_t shared, std::size_t front) {
  const std::size_t one = band_ + front, other = band_ + shared;
  const double both = shared_[shared][one], square = shared_[shared][other];
  for (std::size_t column = 0; column < one; ++column) shared_[front][column] += shared_[shared][column];
  for (std::size_t row = front + 1; row < shared; ++row) shared_[row][one] += shared_[shared][band_ + row];
  for (std::size_t row = shared + 1; row < shared_.size(); ++row) shared_[row][one] += shared_[row][other];
  shared_[front][one] += 2.0 * both + square;
  gradient_(static_cast<Eigen::Index>(one)) += gradient_(static_cast<Eigen::Index>(other));
  Hold(static_cast<int>(other));
}

double NormalEquations::Diagonal(std::size_t row) const {
  return row < band_ ? rows_[row].back() : shared_[row - band_][row];
}

NormalEquations::Step NormalEquations::Solve(double damping) const {
  const Solver solver(Matrix(damping));
  if (solver.info() != Eigen::Success) return {Eigen::VectorXd::Zero(gradient_.size()), 0.0};
  Step step = {solver.solve(gradient_), 0.0};
  for (std::size_t i = 0; i < parameters_; ++i) {
    const double by = step.by(static_cast<Eigen::Index>(i));
    step.gain += by * (gradient_(static_cast<Eigen::Index>(i)) + damping * by * Diagonal(i));
  }
  return step;
}

std::shared_ptr<const Certainty> NormalEquations::Solved() const {
  return std::make_shared<SolvedCertainty>(Matrix(0.0));
}

}  // namespace reflyze
