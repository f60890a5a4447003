// SPDX-License-Identifier: Apache-2.0
#include "measure/NormalEquations.h"

#include <limits>

namespace reflyze {
namespace {

using Matrix = Eigen::SparseMatrix<double>;
using Solver = Eigen::SimplicialLDLT<Matrix, Eigen::Lower, Eigen::NaturalOrdering<int>>;

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
  const std::size_t first = 4 * slopes.first, count = slopes.own.size();
  const double* const own = slopes.own.data();
  double* const gradient = gradient_.data();
  for (std::size_t i = 0; i < count; ++i) {
    if (own[i] == 0.0) continue;
    const double weighted = weight * own[i];
    gradient[first + i] += own[i] * pull;
    std::vector<double>& row = rows_[first + i];
    if (row.size() < i + 1) row.insert(row.begin(), i + 1 - row.size(), 0.0);
    double* const values = row.data() + (row.size() - i - 1);
    for (std::size_t k = 0; k <= i; ++k) values[k] += weighted * own[k];
  }
  for (std::size_t i = 0; i < shared; ++i) {
    const double weighted = weight * slopes.receiver[i];
    gradient[band_ + i] += slopes.receiver[i] * pull;
    double* const values = shared_[i].data();
    for (std::size_t k = 0; k < count; ++k) values[first + k] += weighted * own[k];
    for (std::size_t k = 0; k <= i; ++k) values[band_ + k] += weighted * slopes.receiver[k];
  }
}

void NormalEquations::AddPrior(int parameter, double weight, double off) {
  rows_[static_cast<std::size_t>(parameter)].back() += weight;
  gradient_(parameter) -= weight * off;
}

Eigen::SparseMatrix<double> NormalEquations::Matrix(double damping) const {
  std::vector<Eigen::Triplet<double>> values;
  const auto add = [&](std::size_t row, std::size_t column, double value) {
    // What no sample shows stays as it is.
    if (row == column) value = value == 0.0 ? 1.0 : value * (1.0 + damping);
    if (value != 0.0) values.emplace_back(static_cast<int>(row), static_cast<int>(column), value);
  };
  for (std::size_t row = 0; row < band_; ++row)
    for (std::size_t back = 0; back < rows_[row].size(); ++back)
      add(row, row - back, rows_[row][rows_[row].size() - 1 - back]);
  for (std::size_t i = 0; i < shared_.size(); ++i)
    for (std::size_t column = 0; column <= band_ + i; ++column) add(band_ + i, column, shared_[i][column]);
  const auto count = static_cast<Eigen::Index>(parameters_);
  Eigen::SparseMatrix<double> matrix(count, count);
  matrix.setFromTriplets(values.begin(), values.end());
  return matrix;
}

Eigen::VectorXd NormalEquations::Solve(double damping) const {
  const Solver solver(Matrix(damping));
  if (solver.info() != Eigen::Success) return Eigen::VectorXd::Zero(gradient_.size());
  return solver.solve(gradient_);
}

std::shared_ptr<const Certainty> NormalEquations::Solved() const {
  return std::make_shared<SolvedCertainty>(Matrix(0.0));
}

}  // namespace reflyze
