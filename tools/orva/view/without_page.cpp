// SPDX-License-Identifier: Apache-2.0
#include "shared/failure.h"
#include "view/show.h"

namespace orva {

void Show(const DriverParam& /*param*/, const ShowOptions& /*options*/) {
  throw Failure(
      "this orva was built without its page. Building it takes Node.js, npm, libwebsockets and "
      "nlohmann-json; "
      "'cmake' says which of them it misses.");
}

}  // namespace orva
