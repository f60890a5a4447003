// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the shared library shows of itself; everything else in it is hidden.
#define REFLYZE_API __attribute__((visibility("default")))
