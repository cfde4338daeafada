// SPDX-License-Identifier: Apache-2.0
//
// Says which addresses nftables is given for a server's address and two ordinary ones beside it.
// For a search over odd ways to write an address. A line of standard input is one text; a line of
// standard output holds the addresses that are left, separated by tabs.
#include <iostream>
#include <string>
#include <vector>

#include "runtime/leak_protection.h"

int main() {
  for (std::string text; std::getline(std::cin, text);) {
    std::vector<std::string> addresses = {text, "198.51.100.7", "2001:db8::7"};
    quorvex::linux_service::MakeReadableForNft(&addresses);
    for (const std::string& address : addresses) {
      std::cout << address << '\t';
    }
    std::cout << '\n';
  }
}
