// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FEEDS_CONDITIONS_H_
#define ORVA_TOOLS_FEEDS_CONDITIONS_H_

#include <string>

#include "shared/cloud.h"
#include "view/feed.h"

namespace orva {

// Why the page may show nothing, or not what was meant.

/// `first` and `last`: two frames of the recording.
view::Condition RecordingCondition(LidarType model, const DriverStatistics& statistics, const Cloud& first,
                                   const Cloud& last);

/// `before`: the statistics of a second ago.
view::Condition LiveCondition(const DriverParam& param, const DriverStatistics& now,
                              const DriverStatistics& before);

}  // namespace orva

#endif  // ORVA_TOOLS_FEEDS_CONDITIONS_H_
