// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <orva_driver.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace orva_python {

/// A finished cloud on its way to Python. Nothing else refers to the cloud, so arrays may be views of it.
template <typename PC>
struct Frame {
  std::shared_ptr<PC> cloud;
  std::int64_t number = 0;  ///< replay: of the frame in the recording. Live: counted since the start
  int part = 0;             ///< above 0: a further cloud of the same frame
  std::size_t skipped = 0;  ///< points at the front that belong to the frame before
  double received = 0.0;    ///< capture or reception time of the last packet, seconds since the epoch
  bool calibrated = false;  ///< every point was decoded under a calibration
};

/// Called in every wait, at least ten times a second, without the interpreter's lock: looks whether the user
/// has pressed Ctrl-C, and then throws.
using Check = std::function<void()>;

/// The object belongs to the parent process: its threads do not exist here.
struct Forked : std::runtime_error {
  Forked()
      : std::runtime_error(
            "this was opened before the process forked, and its threads stayed in the parent: open it "
            "again") {}
};

/// Used after its end.
struct Closed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The driver or the system refuses.
struct Refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace orva_python
