// SPDX-License-Identifier: Apache-2.0
//
// Root-only files in root-only folders of /run. Engine configurations carry keys and passwords, so
// they are written only through a descriptor that follows no symbolic link, and are overwritten
// with zeros before they go. The functions keep no state; the caller keeps two of them from working
// on one path at the same time.
#pragma once

#include <string>

namespace quorvex::linux_service {

// Writes `contents` to `path` (a constant inside kRuntimeDirectory or kGroundDirectory) as a file
// of mode 0600 in a directory of mode 0700, and flushes it. On failure the partial file is unlinked
// and `error` (not null) names the step and the system's reason.
[[nodiscard]] bool WritePrivateFile(const char* path, const std::string& contents,
                                    std::string* error);

// Adds `contents` to a file that WritePrivateFile made, and flushes it. On failure part of it may
// be in the file, and `error` (not null) names the step.
[[nodiscard]] bool AppendToPrivateFile(const char* path, const std::string& contents,
                                       std::string* error);

// Overwrites the regular file at `path` with zeros and unlinks it. A file that is not there counts
// as removed. On failure `error` (not null) names the step and the file stays.
[[nodiscard]] bool SecureRemoveFile(const char* path, std::string* error);

}  // namespace quorvex::linux_service
