// SPDX-License-Identifier: Apache-2.0
#pragma once

// The library: reads, analyses, compares, merges, judges and simulates traces of optical time-domain
// reflectometers. Everything is in the namespace reflyze, everything is a value, units stand in the names,
// and every failure is an Error. Threads may work side by side, and share what is const.

#include "reflyze/cable.h"
#include "reflyze/edit.h"
#include "reflyze/error.h"
#include "reflyze/events.h"
#include "reflyze/files.h"
#include "reflyze/filter.h"
#include "reflyze/import.h"
#include "reflyze/inputs.h"
#include "reflyze/limits.h"
#include "reflyze/measure.h"
#include "reflyze/merge.h"
#include "reflyze/monitor.h"
#include "reflyze/picture.h"
#include "reflyze/plot.h"
#include "reflyze/quality.h"
#include "reflyze/report.h"
#include "reflyze/show.h"
#include "reflyze/simulate.h"
#include "reflyze/span.h"
#include "reflyze/text.h"
#include "reflyze/trace.h"
#include "reflyze/version.h"
#include "reflyze/webpage.h"
