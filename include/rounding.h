// The two conversions from double to int of this project: the same answer on every processor.
#pragma once

/// Nearest integer, halves away from zero; NaN gives 0; beyond the range of int: the nearest int. Pure, any thread.
int roundToInt(double value);

/// Towards zero; NaN gives 0; beyond the range of int: the nearest int. Pure, any thread.
int truncateToInt(double value);
