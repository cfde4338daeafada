// SPDX-License-Identifier: Apache-2.0
#include "service/service_run.h"

int main() {
  return quorvex::service_front::RunService();
}
