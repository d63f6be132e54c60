// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_FORMATS_MCAP_OPTIONS_H_
#define ORVA_TOOLS_FORMATS_MCAP_OPTIONS_H_

#include "mcap/writer.h"
#include "messages/from_driver.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace orva {

/// How an MCAP file is written.
struct McapOptions {
  messages::CloudOptions cloud;
  bool foxglove = false;  ///< clouds as foxglove.PointCloud
  mcap::Compression compression = mcap::Compression::kZstd;
};

/// Adds --layout, --invalid, --frame-id, --schema and --compression. `format`: the option that chooses the
/// format, which these need.
void AddMcapOptions(CLI::App& command, CLI::Option* format, McapOptions& options);

}  // namespace orva

#endif  // ORVA_TOOLS_FORMATS_MCAP_OPTIONS_H_
