#pragma once

namespace vak {

// Steps that people count in: 1, 2 and 5 times a power of ten, each the double that its decimals are read as.

/// The smallest such step that isn't below a number. @param atLeast  1e-300 to 1e300; brought in there.
double RoundStepFrom(double atLeast);

/// The greatest such step that isn't above a number. @param atMost  as above.
double RoundStepUpTo(double atMost);

/// The next greater step. @param step  one of them.
double NextRoundStep(double step);

/// How many decimals tell all multiples of a step: 0 from 1 on, 1 for 0.5.
int DecimalsOf(double step);

}  // namespace vak
