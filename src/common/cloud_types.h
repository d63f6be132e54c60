// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "orva_driver.h"

/// Expands X(type) for each cloud type that the library is instantiated for. A new point layout is one line
/// here and one `extern template` in the public header.
#define ORVA_FOR_EACH_CLOUD(X) \
  X(PointCloud<Point>)         \
  X(PointCloud<PointTime>)     \
  X(PointCloud<PointSource>)
