// SPDX-License-Identifier: Apache-2.0
//
// Overwrites every block of memory before it goes back to the allocator. Our own copies of keys and
// configurations are wiped by name; the copies that libraries make on the way (the bus library's
// messages, strings inside variants, pipe buffers) are theirs, and are freed as they are. Defined
// in the executable, these functions take the place of the C library's for every library in the
// process.
//
// The environment could ask glibc's own allocator for the same (M_PERTURB), but not for the small
// blocks of its thread caches, in which most strings live.
#include <malloc.h>

#include <cstdlib>
#include <cstring>

extern "C" {

// glibc's allocator itself, which a program that replaces malloc's functions may call.
void LibcFree(void* block) noexcept __asm__("__libc_free");

void free(void* block) noexcept {
  if (block == nullptr) {
    return;
  }
  explicit_bzero(block, malloc_usable_size(block));
  LibcFree(block);
}

// The C library's realloc would move blocks and free the old ones inside.
void* realloc(void* block, std::size_t size) noexcept {
  if (block == nullptr) {
    return std::malloc(size);
  }
  if (size == 0) {
    free(block);
    return nullptr;
  }
  const std::size_t usable = malloc_usable_size(block);
  if (size <= usable && size >= usable / 2) {
    return block;
  }
  void* moved = std::malloc(size);
  if (moved == nullptr) {
    return nullptr;
  }
  std::memcpy(moved, block, size < usable ? size : usable);
  free(block);
  return moved;
}

}  // extern "C"
