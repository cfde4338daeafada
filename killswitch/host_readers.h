// SPDX-License-Identifier: Apache-2.0
//
// One reader for each configuration format, and what they share. Each appends the server hosts that
// the text names, in order of appearance; what it cannot read adds none. Pure.
#pragma once

#include <string>

#include "runtime/unique_texts.h"

namespace quorvex::linux_service {

using HostList = UniqueTexts;

void ReadSingBoxHosts(const std::string& configuration, HostList* hosts);
void ReadXrayHosts(const std::string& configuration, HostList* hosts);
void ReadWireGuardHosts(const std::string& configuration, HostList* hosts);
void ReadOpenVpnHosts(const std::string& configuration, HostList* hosts);

// The text without spaces, tabs, carriage returns and line feeds at its ends. Narrower than the
// white space that validation and the command runner trim.
[[nodiscard]] std::string TrimAscii(const std::string& text);

// Appends the trimmed candidate, unless it is empty, longer than 255 bytes or in the list already.
void AddHost(HostList* hosts, const std::string& candidate);

}  // namespace quorvex::linux_service
