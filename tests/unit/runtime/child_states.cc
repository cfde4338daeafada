// SPDX-License-Identifier: Apache-2.0
//
// A small real program that keeps the state which its argument names, as /proc shows it, until it
// is killed.
#include <pthread.h>
#include <unistd.h>

#include <cstring>
#include <thread>

namespace {

// The first thread ends and the kernel calls the process a zombie. Nobody can reap it as long as
// the second thread lives.
[[noreturn]] void BecomeUnreapableZombie() {
  std::thread([] { pause(); }).detach();
  pthread_exit(nullptr);
}

// A parent waits uninterruptibly for a vfork child that neither ends nor becomes another program.
void WaitUninterruptibly() {
  if (vfork() == 0) {
    pause();
    _exit(0);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "zombie") == 0) {
    BecomeUnreapableZombie();
  }
  if (argc > 1 && std::strcmp(argv[1], "disk-wait") == 0) {
    WaitUninterruptibly();
  }
  return 0;
}
