// SPDX-License-Identifier: Apache-2.0
#include "killswitch/kill_switch.h"

#include <glib.h>

#include "killswitch/nft_runner.h"
#include "killswitch/ruleset.h"
#include "runtime/constants.h"

namespace quorvex::linux_service {

bool ApplyKillSwitch(const std::string& interface, const std::vector<std::string>& addresses,
                     std::string* error) {
  std::string ruleset;
  return BuildKillSwitchRuleset(interface, addresses, &ruleset, error) &&
         RunNft({"-f", "-"}, ruleset, error);
}

bool RemoveKillSwitch(std::string* error) {
  // Without nftables no kill switch can be installed, and a disconnect must not fail for it.
  if (g_file_test(kNftBinary, G_FILE_TEST_IS_EXECUTABLE) == FALSE) {
    return true;
  }
  // Declared first, so that the deletion succeeds whether or not the table exists.
  const std::string table = std::string("table inet ") + kKillSwitchTable + "\n";
  return RunNft({"-f", "-"}, table + "delete " + table, error);
}

bool KillSwitchInstalled() {
  std::string discarded;
  return RunNft({"list", "table", "inet", kKillSwitchTable}, "", &discarded);
}

}  // namespace quorvex::linux_service
