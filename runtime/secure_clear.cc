// SPDX-License-Identifier: Apache-2.0
#include "runtime/secure_clear.h"

#include <cstring>

namespace quorvex::linux_service {

void SecureClear(std::string* value) noexcept {
  if (value == nullptr) {
    return;
  }
  // explicit_bzero, unlike memset, is never removed as a dead store.
  explicit_bzero(value->data(), value->size());
  value->clear();
  value->shrink_to_fit();
}

}  // namespace quorvex::linux_service
