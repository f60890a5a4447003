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

constexpr std::size_t kOwn = 4, kBlock = kOwn * kOwn;

inline void AddTimes(double factor, const double* from, double* to) {
  const double one = to[0] + factor * from[0], two = to[1] + factor * from[1];
  const double three = to[2] + factor * from[2], four = to[3] + factor * from[3];
  to[0] = one, to[1] = two, to[2] = three, to[3] = four;
}

}  // namespace

NormalEquations::NormalEquations(std::size_t parameters, std::size_t shared)
    : parameters_(parameters),
      band_(parameters - shared),
      rows_(band_ / kOwn),
      shared_(shared, std::vector<double>(parameters, 0.0)),
      gradient_(Eigen::VectorXd::Zero(static_cast<Eigen::Index>(parameters))) {
  for (std::size_t place = 0; place < rows_.size(); ++place)
    rows_[place] = {place, std::vector<double>(kBlock, 0.0)};
}

double* NormalEquations::BlockOf(std::size_t place, std::size_t other) {
  Row& row = rows_[place];
  if (other < row.first) {
    row.blocks.insert(row.blocks.begin(), (row.first - other) * kBlock, 0.0);
    row.first = other;
  }
  return row.blocks.data() + (other - row.first) * kBlock;
}

void NormalEquations::Add(const Slopes& slopes, std::size_t shared, double weight, double pull) {
  double* const gradient = gradient_.data();
  for (std::size_t i = 0; i < slopes.count; ++i) {
    const Slopes::OfPlace& one = slopes.places[i];
    double weighted[kOwn];
    for (std::size_t k = 0; k < kOwn; ++k) weighted[k] = weight * one.by[k];
    AddTimes(pull, one.by, gradient + kOwn * one.place);
    for (std::size_t j = 0; j <= i; ++j) {
      const Slopes::OfPlace& other = slopes.places[j];
      double* const block = BlockOf(one.place, other.place);
      for (std::size_t k = 0; k < kOwn; ++k) {
        if (weighted[k] != 0.0) AddTimes(weighted[k], other.by, block + kOwn * k);
      }
    }
  }
  for (std::size_t i = 0; i < shared; ++i) {
    const double weighted = weight * slopes.receiver[i];
    if (weighted == 0.0) continue;
    gradient[band_ + i] += slopes.receiver[i] * pull;
    double* const row = shared_[i].data();
    for (std::size_t j = 0; j < slopes.count; ++j)
      AddTimes(weighted, slopes.places[j].by, row + kOwn * slopes.places[j].place);
    for (std::size_t j = 0; j <= i; ++j) row[band_ + j] += weighted * slopes.receiver[j];
  }
}

void NormalEquations::AddPrior(int parameter, double weight, double off) {
  const auto row = static_cast<std::size_t>(parameter);
  *Value(row, row) += weight;
  gradient_(parameter) -= weight * off;
}

// A row, up to its diagonal, is a column of the upper triangle.
Eigen::SparseMatrix<double> NormalEquations::Matrix(double damping) const {
  const auto count = static_cast<Eigen::Index>(parameters_);
  std::size_t values = shared_.size() * parameters_;
  for (const Row& row : rows_) values += row.blocks.size();
  Eigen::SparseMatrix<double> matrix(count, count);
  matrix.reserve(static_cast<Eigen::Index>(values));
  const auto add = [&](std::size_t row, std::size_t first, const auto& valueOf) {
    const auto column = static_cast<Eigen::Index>(row);
    matrix.startVec(column);
    for (std::size_t k = first; k < row; ++k)
      matrix.insertBack(static_cast<Eigen::Index>(k), column) = valueOf(k);
    // What no sample shows stays as it is.
    const double diagonal = valueOf(row);
    matrix.insertBack(column, column) = diagonal == 0.0 ? 1.0 : diagonal * (1.0 + damping);
  };
  for (std::size_t row = 0; row < band_; ++row)
    add(row, kOwn * rows_[row / kOwn].first, [&](std::size_t column) { return *Value(row, column); });
  for (std::size_t i = 0; i < shared_.size(); ++i)
    add(band_ + i, 0, [&](std::size_t column) { return shared_[i][column]; });
  matrix.finalize();
  return matrix;
}

void NormalEquations::Hold(int parameter) {
  const auto held = static_cast<std::size_t>(parameter);
  gradient_(parameter) = 0.0;
  for (std::size_t row = held; row < band_; ++row) {
    const std::size_t first = kOwn * rows_[row / kOwn].first;
    if (row == held) {
      for (std::size_t column = first; column <= row; ++column) *Value(row, column) = 0.0;
    } else if (held >= first) {
      *Value(row, held) = 0.0;
    }
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

const double* NormalEquations::Value(std::size_t row, std::size_t column) const {
  const Row& of = rows_[row / kOwn];
  return of.blocks.data() + (column / kOwn - of.first) * kBlock + kOwn * (row % kOwn) + column % kOwn;
}

double* NormalEquations::Value(std::size_t row, std::size_t column) {
  return BlockOf(row / kOwn, column / kOwn) + kOwn * (row % kOwn) + column % kOwn;
}

double NormalEquations::Diagonal(std::size_t row) const {
  return row < band_ ? *Value(row, row) : shared_[row - band_][row];
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
