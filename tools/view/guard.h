// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_GUARD_H_
#define ORVA_TOOLS_VIEW_GUARD_H_

#include <string>
#include <string_view>
#include <vector>

namespace orva::view {

/// Who may come in. A page of another site must not reach the sensor through the visitor's browser, under its
/// own name or under one that it points at this machine; and what other machines reach asks for a secret.
struct Guard {
  bool loopback = true;              ///< listens on this machine alone
  std::string token;                 ///< empty: none is asked for
  std::vector<std::string> origins;  ///< further origins that may connect, as in "https://viewer.example"

  /// `host`: the Host header, with the port. Only names of this machine where it listens on loopback.
  bool AdmitsHost(std::string_view host) const;
  /// `origin`: the Origin header; empty where there is none, as with programs that are no browsers.
  bool AdmitsOrigin(std::string_view origin, std::string_view host) const;
  /// Takes as long for a wrong token as for the right one.
  bool AdmitsToken(std::string_view given) const;
};

/// 128 bits from the system's generator, as 32 hexadecimal digits.
std::string MakeToken();

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_GUARD_H_
