// SPDX-License-Identifier: Apache-2.0
#include "view/guard.h"

#include <algorithm>
#include <array>
#include <random>

namespace orva::view {

bool Guard::AdmitsHost(std::string_view host) const {
  if (!loopback) {
    return !host.empty();
  }
  const std::string_view name = host.substr(0, host.rfind(':'));
  const auto is_address = [](std::string_view text) {
    return text.find_first_not_of("0123456789.") == std::string_view::npos;
  };
  return name == "localhost" || (name.substr(0, 4) == "127." && is_address(name));
}

bool Guard::AdmitsOrigin(std::string_view origin, std::string_view host) const {
  constexpr std::string_view kScheme = "http://";
  const bool own = origin.substr(0, kScheme.size()) == kScheme && origin.substr(kScheme.size()) == host;
  return origin.empty() || own || std::find(origins.begin(), origins.end(), origin) != origins.end();
}

bool Guard::AdmitsToken(std::string_view given) const {
  unsigned difference = given.size() == token.size() ? 0 : 1;
  for (std::size_t i = 0; i < token.size(); ++i) {
    const char other = i < given.size() ? given[i] : '\0';
    difference |= static_cast<unsigned>(token[i] ^ other);
  }
  return token.empty() || difference == 0;
}

std::string MakeToken() {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::random_device device;  // getrandom or /dev/urandom
  std::string token;
  for (int word = 0; word < 4; ++word) {
    unsigned bits = device();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) {
      token += kDigits[bits & 15U];
    }
  }
  return token;
}

}  // namespace orva::view
