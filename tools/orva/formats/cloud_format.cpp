// SPDX-License-Identifier: Apache-2.0
#include "formats/cloud_format.h"

#include <array>

namespace orva {
namespace {

#define ORVA_ADDRESS(Name) &k##Name##Format,
constexpr std::array kFormats = {ORVA_CLOUD_FORMATS(ORVA_ADDRESS)};
#undef ORVA_ADDRESS

}  // namespace

std::span<const CloudFormat* const> CloudFormats() {
  return kFormats;
}

std::string FormatNames(const char* between, const char* last) {
  std::string names;
  for (const CloudFormat* format : kFormats) {
    if (!names.empty()) {
      names += format == kFormats.back() ? last : between;
    }
    names += format->name;
  }
  return names;
}

}  // namespace orva
