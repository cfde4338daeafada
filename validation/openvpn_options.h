// SPDX-License-Identifier: Apache-2.0
//
// What a client's profile may ask of OpenVPN, by OpenVPN's own names. An option that is not in
// these tables is refused, whatever a later OpenVPN makes of it.
#pragma once

#include <cstddef>
#include <string_view>

namespace quorvex::linux_service {

enum class OpenVpnArguments : char {
  // Numbers, names of algorithms, addresses, texts: nothing that OpenVPN opens, runs or binds to.
  kHarmless,
  // Left to the service, which replaces the plain spellings.
  kDevice,
  kDeviceType,
  kProtocol,
  kRemote,
  // Certificates and credentials: an inline block, never a file.
  kMaterial,
  kHttpProxy,
  kSocksProxy,
  // No port in particular: 0.
  kAnyPort,
  kIgnoredNames,
};

struct OpenVpnOption {
  std::string_view name;
  // How many words may follow the name.
  std::size_t least;
  std::size_t most;
  OpenVpnArguments arguments = OpenVpnArguments::kHarmless;
};

// The permitted option of this name, in lower case; a null pointer for any other.
[[nodiscard]] const OpenVpnOption* FindOpenVpnOption(std::string_view name);

// How many names OpenVPN may be told to pass over. They mean nothing to it on Linux, or no longer
// anything, so profiles for several systems carry them under `ignore-unknown-option`. Other names
// are not for a profile to hide: a later OpenVPN may know them.
inline constexpr std::size_t kIgnorableOpenVpnOptions = 15;

// The place of such a name among them; their number for any other name.
[[nodiscard]] std::size_t IndexOfIgnorableOpenVpnOption(std::string_view name);

}  // namespace quorvex::linux_service
