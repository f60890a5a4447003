#pragma once

// Operations on the events of a record: what they measure, and how their table is edited.

#include "ref/refEventEdit.h"
#include "ref/refEventReflection.h"
