#include "sor/sorMath.h"

#include <cmath>

double SorMathPow5(double x) { return std::pow(10.0, x / 5.0); }

double SorMathLog5(double x) { return x > 0.0 ? 5.0 * std::log10(x) : 0.0; }
