// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "measure/FirstModel.h"
#include "measure/LinkFit.h"

namespace reflyze {

// What a fit leaves over shows what the model lacks, and what it has too much.
class SecondLook {
 public:
  // `keepsListed`: what the record lists is never taken out.
  SecondLook(const Powers& powers, bool keepsListed) : powers_(powers), keepsListed_(keepsListed) {}

  // Puts steps and reflections that stand out from the residuals into `noted`, and lets places reflect where
  // they do; at most that many, the clearest first. How many there were.
  std::size_t AddMissing(const std::vector<Sample>& samples, const NoiseModel& noise, const LinkFit& fit,
                         int most, NotedModel& noted);
  // What `tried` has more than `kept` is not tried again.
  void Forget(const NotedModel& kept, const NotedModel& tried);

  // Moves steps that a table, or a look at blocks, has put beside their place by more than a pulse: a fit
  // moves only what its place can see. Whether there was any.
  bool MoveSteps(const NoiseModel& noise, const LinkFit& fit, NotedModel& noted) const;

  // Takes out what the fit found to be nothing: steps that could be noise, and reflections that could.
  // Whether there was any. What was taken out once is not put in again.
  bool RemoveNothing(const LinkFit& fit, NotedModel& noted);

 private:
  // A step or a reflection that the model lacks.
  struct Missing {
    std::size_t at;  // place that reflects, or section that it splits
    bool isThere;    // the place is there
    double score;
    LinkModel::Place place;
    double step, withinKm;
  };
  std::vector<Missing> AllMissing(const std::vector<Sample>& samples, const NoiseModel& noise,
                                  const LinkFit& fit, const NotedModel& noted) const;
  static std::vector<Missing> LeaveOutNeighbours(const std::vector<Missing>& clearestFirst,
                                                 const LinkModel& model);
  bool IsFree(const LinkModel& model, std::size_t section, double km) const;
  void Remove(std::size_t place, bool wholly, NotedModel& noted);
  bool JoinTouching(NotedModel& noted);
  bool IsKept(const PlaceNote& note) const { return keepsListed_ && note.listed >= 0; }
  bool IsDark(const PlaceNote& note) const;
  static bool LosesToShadow(const LinkModel& model, std::size_t place);

  const Powers& powers_;
  const bool keepsListed_;
  std::vector<double> emptyKm_;  // where nothing was found to be
  std::vector<double> darkKm_;   // places, as first seen, that were found to reflect nothing
};

// Loss of a place between launch and end in nepers, with its weights, where its light comes from.
double LossOf(const LinkModel& model, std::size_t place, Weights& by);

}  // namespace reflyze
