// SPDX-License-Identifier: Apache-2.0
#include "tests/support/step_faults/process_files.h"

#include <fstream>

namespace step_faults {
namespace {

std::ifstream Open(pid_t process, const char* file) {
  return std::ifstream("/proc/" + std::to_string(process) + "/" + file);
}

}  // namespace

pid_t ReadProcess(pid_t thread) {
  std::ifstream status = Open(thread, "status");
  pid_t process = thread;
  for (std::string word; status >> word;) {
    if (word == "Tgid:") {
      status >> process;
      break;
    }
  }
  return process;
}

std::string ReadName(pid_t process) {
  std::string name;
  std::getline(Open(process, "comm"), name);
  return name;
}

}  // namespace step_faults
