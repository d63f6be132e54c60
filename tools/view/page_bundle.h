// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_PAGE_BUNDLE_H_
#define ORVA_TOOLS_VIEW_PAGE_BUNDLE_H_

#include "view/web_server.h"

namespace orva::view {

/// The page as it was built from viewer/.
Page BundledPage();

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_PAGE_BUNDLE_H_
