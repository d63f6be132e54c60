// SPDX-License-Identifier: Apache-2.0
// Names every public record, so that a library made of this file alone describes their layout: what the
// driver's own symbols reach only through std::function is not among what abidw follows.
#include "orva_driver.h"

ORVA_API void Records(const Point&, const PointTime&, const PointSource&, const PointCloud<Point>&,
                      const PointCloud<PointTime>&, const PointCloud<PointSource>&, const ImuMsg&,
                      const Error&, const DriverParam&, const DriverStatistics&,
                      const OrvaDriver<PointCloud<Point>>&) {}
