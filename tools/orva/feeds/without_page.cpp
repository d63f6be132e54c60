// SPDX-License-Identifier: Apache-2.0
#include "feeds/show.h"
#include "shared/failure.h"

namespace orva {

void Show(const DriverParam& /*param*/, const ShowOptions& /*options*/) {
  throw Failure(
      "this orva was built without its page. Building it takes Node.js, npm, libwebsockets and "
      "nlohmann-json; "
      "'cmake' says which of them it misses.");
}

}  // namespace orva
