// SPDX-License-Identifier: Apache-2.0
#include "sor/scale/sorMath.h"

#include "util/elementary.h"

namespace elementary = reflyze::elementary;

double SorMathPow5(double x) { return elementary::Exp10(x / 5.0); }

double SorMathLog5(double x) { return x > 0.0 ? 5.0 * elementary::Log10(x) : 0.0; }
