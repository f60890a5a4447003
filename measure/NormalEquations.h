// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Eigen/SparseCholesky>
#include <vector>

#include "measure/LinkFit.h"

namespace reflyze {

// The equations of a step of least squares, H x = g. A place shows only as far as the receiver remembers it,
// so most of H is empty: a band, and the rows of the receiver, which come last and know all. Solved in the
// order of the fibre this costs what its length is.
class NormalEquations {
 public:
  NormalEquations(std::size_t parameters, std::size_t shared);

  // Adds weight * residual^2 of one sample, whose model has these slopes, with so many of the shared ones;
  // `pull` is weight * residual.
  void Add(const Slopes& slopes, std::size_t shared, double weight, double pull);
  // Takes a parameter out: its step will be 0.
  void Hold(int parameter);
  // Lets a shared parameter go as far as one in front of it: their sum is solved for, and its own step is 0.
  void Join(std::size_t shared, std::size_t front);
  void AddPrior(int parameter, double weight, double off);

  // The step x, with the diagonal D of H larger by a share of itself. With (H + damping D) x = g the sum of
  // squares falls by 2 g x - x H x = g x + damping x D x, if the model is straight.
  struct Step {
    Eigen::VectorXd by;
    double gain;
  };
  Step Solve(double damping) const;
  std::shared_ptr<const Certainty> Solved() const;

 private:
  Eigen::SparseMatrix<double> Matrix(double damping) const;

  // What all parameters of a place have to do with those of the places in front of it that show where it
  // does: blocks of four by four, that of `first` first and its own last.
  struct Row {
    std::size_t first;
    std::vector<double> blocks;
  };
  double* BlockOf(std::size_t place, std::size_t other);
  double* Value(std::size_t row, std::size_t column);
  const double* Value(std::size_t row, std::size_t column) const;
  double Diagonal(std::size_t row) const;

  std::size_t parameters_, band_;            // of which the last are shared
  std::vector<Row> rows_;                    // of each place
  std::vector<std::vector<double>> shared_;  // rows of the shared parameters, whole
  Eigen::VectorXd gradient_;
};

}  // namespace reflyze
