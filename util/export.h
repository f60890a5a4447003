// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the shared library shows of itself; everything else in it is hidden. The same words as in
// reflyze/export.h, so that either may be included first.
#define REFLYZE_API __attribute__((visibility("default")))
