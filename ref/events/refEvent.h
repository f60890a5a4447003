// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operations on the events of a record: what they measure, how their table is edited, how two directions are
// merged, and how far it all can be believed.

#include "ref/events/refEventBiDir.h"
#include "ref/events/refEventEdit.h"
#include "ref/events/refEventQuality.h"
#include "ref/events/refEventReflection.h"
