#pragma once

// Operations on the events of a record: what they measure, how their table is edited, how two directions are
// merged, and how far it all can be believed.

#include "ref/refEventBiDir.h"
#include "ref/refEventEdit.h"
#include "ref/refEventQuality.h"
#include "ref/refEventReflection.h"
