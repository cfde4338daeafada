// SPDX-License-Identifier: Apache-2.0
//
// Both formats are read top to bottom, and a reader ends at the first line that it refuses. So a
// text that is cut off behind some line, with a line of nonsense put after it, is refused for the
// nonsense as long as the reader is still reading there, and with the sentence in question once it
// has ended: between the two lies the line. Two kinds of nonsense with a sentence each, since one
// of them may be the sentence in question.
#include "control/line_places.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "control/option_names.h"
#include "runtime/secure_clear.h"
#include "validation/engine_rules.h"
#include "validation/openvpn_second_reading.h"
#include "validation/openvpn_sentences.h"
#include "validation/profile_validation.h"
#include "validation/rule_text.h"
#include "validation/wireguard_second_reading.h"

namespace quorvex::control {
namespace {

using linux_service::EqualsIgnoringCase;
using linux_service::SecureClear;
using linux_service::TakeLine;
using linux_service::Trim;
using linux_service::ValidationResult;

using Rules = ValidationResult(const std::string& rawConfig);
using Nonsense = std::array<std::string_view, 2>;

constexpr Nonsense kWireGuardNonsense = {"nonsense\n", "[Interface]\n[Interface]\n"};
constexpr Nonsense kOpenVpnNonsense = {"up nonsense\n", "</nonsense>\n"};
// Asking about each line by itself takes the square of their number.
constexpr std::size_t kMostLinesOneByOne = 2000;

// The texts that are asked about, cut from the one that was refused.
class Cutter {
 public:
  Cutter(const std::string& rawConfig, const std::string& sentence)
      : whole(rawConfig), message(sentence) {
    for (std::string_view rest = whole; !rest.empty();) {
      lines.push_back(TakeLine(&rest));
    }
  }
  Cutter(const Cutter&) = delete;
  Cutter& operator=(const Cutter&) = delete;
  ~Cutter() { SecureClear(&text); }

  [[nodiscard]] std::size_t LineCount() const { return lines.size(); }
  [[nodiscard]] std::string_view Line(std::size_t number) const { return lines[number - 1]; }

  // Whether the rules have this sentence for the first lines and what is put behind them.
  [[nodiscard]] bool Complains(Rules* rules, std::size_t count, std::string_view behind) {
    const std::size_t end = count == 0 ? 0 : EndOf(count);
    text.assign(whole, 0, end);
    text.append(end > 0 && text.back() != '\n' ? "\n" : "").append(behind);
    return rules(text).message == message;
  }
  [[nodiscard]] bool HasEnded(Rules* rules, std::size_t count, const Nonsense& nonsense) {
    return std::ranges::all_of(nonsense, [this, rules, count](std::string_view line) {
      return Complains(rules, count, line);
    });
  }
  // Whether the rules have nothing to say once this line is left out.
  [[nodiscard]] bool PassesWithout(Rules* rules, std::size_t number) {
    const std::string_view line = Line(number);
    text.assign(whole);
    text.erase(static_cast<std::size_t>(line.data() - whole.data()), line.size());
    return rules(text).valid;
  }

 private:
  [[nodiscard]] std::size_t EndOf(std::size_t number) const {
    const std::string_view line = Line(number);
    return static_cast<std::size_t>(line.data() - whole.data()) + line.size();
  }

  const std::string& whole;
  const std::string& message;
  std::vector<std::string_view> lines;
  std::string text;
};

// The line at which the reader ended; zero when it came to the end of the text.
std::size_t LineOfTheEnd(Cutter* cutter, Rules* rules, const Nonsense& nonsense) {
  std::size_t reading = 0;
  std::size_t ended = cutter->LineCount();
  if (!cutter->HasEnded(rules, ended, nonsense) || cutter->HasEnded(rules, 0, nonsense)) {
    return 0;
  }
  while (ended - reading > 1) {
    const std::size_t middle = reading + (ended - reading) / 2;
    (cutter->HasEnded(rules, middle, nonsense) ? ended : reading) = middle;
  }
  return ended;
}

// The one line without which all is well; zero when there is none or more than one.
std::size_t LineThatSpoils(Cutter* cutter, Rules* rules) {
  std::size_t found = 0;
  if (cutter->LineCount() > kMostLinesOneByOne) {
    return 0;
  }
  for (std::size_t number = 1; number <= cutter->LineCount(); ++number) {
    if (cutter->PassesWithout(rules, number)) {
      if (found != 0) {
        return 0;
      }
      found = number;
    }
  }
  return found;
}

// Inside an open block the reader takes any nonsense for a part of it. The block that never ends is
// the one from which on every beginning of the text has this sentence.
std::size_t LineThatOpensTheLastBlock(Cutter* cutter, Rules* rules) {
  std::size_t number = cutter->LineCount();
  if (number > kMostLinesOneByOne) {
    return 0;
  }
  while (number > 0 && cutter->Complains(rules, number - 1, "")) {
    --number;
  }
  return number;
}

// The last peer is found incomplete at the end of the text: the complaint begins with its header,
// and with no other line.
std::size_t LineOfTheLastPeer(Cutter* cutter, Rules* rules) {
  const std::size_t number = LineThatOpensTheLastBlock(cutter, rules);
  return number != 0 && EqualsIgnoringCase(Trim(cutter->Line(number)), "[peer]") ? number : 0;
}

std::optional<FaultPlace> PlaceOf(std::size_t number, std::string name) {
  if (number == 0) {
    return {};
  }
  return FaultPlace{number, 0, std::move(name)};
}

std::string WireGuardName(std::string_view line) {
  const std::string_view key = Trim(line.substr(0, line.find('=')));
  return IsWireGuardName(key) ? std::string(key) : std::string();
}

std::string OpenVpnName(std::string_view line) {
  std::string_view word = Trim(line);
  word = word.substr(0, word.find_first_of(" \t"));
  return IsOpenVpnName(word) ? std::string(word) : std::string();
}

// The rules come first; where they are content, it is the engine's own reading that complains.
Rules* WhoComplains(const std::string& rawConfig, Rules* rules, Rules* secondReading) {
  return rules(rawConfig).valid ? secondReading : rules;
}

}  // namespace

std::optional<FaultPlace> LocateInWireGuard(const std::string& rawConfig,
                                            const std::string& message) {
  Rules* rules = WhoComplains(rawConfig, linux_service::ValidateWireGuard,
                              linux_service::ValidateAsWgQuickReads);
  Cutter cutter(rawConfig, message);
  std::size_t number = LineOfTheEnd(&cutter, rules, kWireGuardNonsense);
  if (number == 0) {
    number = LineOfTheLastPeer(&cutter, rules);
  }

  return PlaceOf(number, number == 0 ? "" : WireGuardName(cutter.Line(number)));
}

std::optional<FaultPlace> LocateInOpenVpn(const std::string& rawConfig,
                                          const std::string& message) {
  Rules* rules = WhoComplains(rawConfig, linux_service::ValidateOpenVpn,
                              linux_service::ValidateAsOpenVpnReads);
  Cutter cutter(rawConfig, message);
  std::size_t number = 0;
  if (message == linux_service::kOpenVpnUnterminatedBlock) {
    number = LineThatOpensTheLastBlock(&cutter, rules);
  } else {
    number = LineOfTheEnd(&cutter, rules, kOpenVpnNonsense);
    number = number != 0 ? number : LineThatSpoils(&cutter, rules);
  }
  return PlaceOf(number, number == 0 ? "" : OpenVpnName(cutter.Line(number)));
}

}  // namespace quorvex::control
