// SPDX-License-Identifier: Apache-2.0
#include "control/profile_file.h"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "control/exit_codes.h"
#include "runtime/glib_ptr.h"
#include "runtime/secure_clear.h"

namespace quorvex::control {
namespace {

constexpr std::size_t kReadLimit = 2097152 + 1;

class Descriptor {
 public:
  explicit Descriptor(int opened) : number(opened) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number > STDIN_FILENO) {
      close(number);
    }
  }
  [[nodiscard]] int Get() const { return number; }

 private:
  int number;
};

// One allocation of the largest size, so that growing leaves no copies behind. Zero or an errno.
int ReadAll(int descriptor, std::string* text) {
  text->resize(kReadLimit);
  std::size_t used = 0;
  while (used < kReadLimit) {
    const ssize_t got = read(descriptor, text->data() + used, kReadLimit - used);
    if (got < 0 && errno != EINTR) {
      return errno;
    }
    if (got == 0) {
      break;
    }
    used += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  }
  text->resize(used);
  return 0;
}

bool IsUtf8(const std::string& text) {
  // A NUL inside is for the rules to refuse.
  const std::string_view rest(text);
  const std::string_view head = rest.substr(0, rest.find('\0'));
  return g_utf8_validate(head.data(), static_cast<gssize>(head.size()), nullptr) != FALSE;
}

Failure CannotRead(const std::string& path, int error) {
  return {kExitFailure, "Unable to read " + path + ": " + g_strerror(error), ""};
}

char Harmless(char byte) {
  const bool control = static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
  return control ? '_' : byte;
}

}  // namespace

SecretText::~SecretText() {
  linux_service::SecureClear(&text);
}

bool ReadProfileFile(const std::string& path, SecretText* secret, Failure* failure) {
  const Descriptor file(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const int error = file.Get() < 0 ? errno : ReadAll(file.Get(), &secret->text);
  if (error != 0) {
    *failure = CannotRead(path == "-" ? "standard input" : path, error);
    return false;
  }
  // The rules have a sentence of their own for a text that is too large.
  if (secret->text.size() < kReadLimit && !IsUtf8(secret->text)) {
    *failure = {kExitProfileRefused, "The profile is not UTF-8 text.",
                "Only UTF-8 can be sent over the bus; iconv(1) converts other encodings."};
    return false;
  }
  return true;
}

std::string ProfileIdOf(const std::string& path) {
  if (path == "-") {
    return "stdin";
  }
  const GCharPtr base(g_path_get_basename(path.c_str()));
  const GCharPtr valid(g_utf8_make_valid(base.get(), -1));
  std::string id(valid.get());
  const std::size_t dot = id.rfind('.');
  if (dot != std::string::npos && dot > 0) {
    id.resize(dot);
  }
  std::ranges::transform(id, id.begin(), Harmless);
  return id;
}

}  // namespace quorvex::control
