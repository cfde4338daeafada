// SPDX-License-Identifier: Apache-2.0
#include "control/bus.h"
#include "control/commands.h"
#include "control/exit_codes.h"
#include "control/json_text.h"
#include "control/messages.h"
#include "control/output.h"
#include "control/profile_file.h"

namespace quorvex::control {
namespace {

std::string KeyText(GVariant* keys, bool json) {
  if (json) {
    return JsonText()
               .String("privateKey", TextIn(keys, "privateKey"))
               .String("publicKey", TextIn(keys, "publicKey"))
               .End() +
           "\n";
  }
  return "PrivateKey = " + TextIn(keys, "privateKey") +
         "\nPublicKey = " + TextIn(keys, "publicKey") + "\n";
}

}  // namespace

int RunKeygen(const CommandLine& line) {
  Failure failure;
  const BusPtr bus = OpenBus(&failure);
  const GVariantPtr keys = bus == nullptr ? nullptr
                                          : AskService(bus.get(), "GenerateWireGuardKeyPair",
                                                       kDialogPatienceMs, &failure);
  if (keys == nullptr) {
    return Report(failure, line.json);
  }
  SecretText secret;
  secret.text = KeyText(keys.get(), line.json);
  Print(secret.text);
  return kExitOk;
}

}  // namespace quorvex::control
