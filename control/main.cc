// SPDX-License-Identifier: Apache-2.0
#include "control/commands.h"

int main(int argc, char** argv) {
  return quorvex::control::RunControl(argc, argv);
}
