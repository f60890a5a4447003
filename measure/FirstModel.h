// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "measure/LinkModel.h"
#include "measure/Powers.h"

class TSorData;

namespace reflyze {

// What is known of a place beside the model: where it was first seen, and what the record says of it.
struct PlaceNote {
  double toldKm = 0.0;
  double withinKm = 0.0;   // standard deviation of that
  int listed = -1;         // its number in the record's table; -1 for none
  bool saturated = false;  // the receiver could not follow the peak
  double seen = 0.0;       // of a saturated one: power of the reflection that shows at least
  bool blind = false;      // a launch whose light is that of something else, too
};

// A model of a link while it is being fitted, a note for each place.
struct NotedModel {
  LinkModel model;
  std::vector<PlaceNote> notes;

  // Puts a place into a section. Both parts keep its line, apart by `step` nepers.
  void Split(std::size_t section, const LinkModel::Place& place, double step, double withinKm);
  // Takes a place between launch and end away. The line behind it goes on to the front.
  void Join(std::size_t place);
};

// The events that a record lists, as a model to begin with. Reflections start where the raw samples begin to
// rise, since a fit that starts beside a bright peak ends beside it.
NotedModel FirstModel(const TSorData& record, const Powers& powers);

// Where the light of a reflection near `km` begins to rise; `km` where nothing rises there.
double LeadingEdgeKm(const Powers& powers, double km, double pulseKm, double riseKm);

// A line through settled fibre between two places of a model.
LinkModel::Section LineBetween(const Powers& powers, const LinkModel& model, double fromKm, double toKm);

}  // namespace reflyze
