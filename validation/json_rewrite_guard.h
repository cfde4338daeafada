// SPDX-License-Identifier: Apache-2.0
//
// The JSON engines never see a profile's own text: they read what json-glib writes of the tree that
// it read. This guard knows where the two differ.
#pragma once

#include <string_view>

#include "validation/json_tokens.h"

namespace quorvex::linux_service {

// Whether json-glib, which has parsed `text` without an error, writes back strict JSON that says
// what `text` says. It does not for an integer beyond 2^63 - 1 either way (2^64 becomes -1), a
// fraction that is infinite or that it writes wrongly (1e22 becomes "1e+22.0"), a NUL, which cuts a
// text or a name short, half a surrogate pair or an octal escape that is no UTF-8, and the control
// character 0x1F, which it forgets to escape. Comments, single quotes, hexadecimal, octal and
// binary numbers and other inventions of json-glib's pass: the rules and the engine see the same
// meaning. Takes linear time.
[[nodiscard]] bool SurvivesRewriting(std::string_view text);

// The same in two parts, for who reads the tokens anyway: of the text at large, and of each of its
// tokens, the last one of `tokens`, which is a `kind`.
[[nodiscard]] bool BytesSurviveRewriting(std::string_view text);
[[nodiscard]] bool TokenSurvivesRewriting(JsonTokenKind kind, const JsonTokenReader& tokens);

}  // namespace quorvex::linux_service
