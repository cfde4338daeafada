// SPDX-License-Identifier: Apache-2.0
#include "control/command_line.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "runtime/glib_ptr.h"

namespace quorvex::control {
namespace {

constexpr const char* kSummary =
    "Commands:\n"
    "  status            What the tunnel does now\n"
    "  connect FILE      Start a tunnel from a profile and wait until it is up (FILE -: from "
    "standard input)\n"
    "  disconnect        Take the tunnel down and wait until it is\n"
    "  watch             Show stages, log entries and the network as they come, until interrupted\n"
    "  keygen            Print a new WireGuard key pair\n"
    "  check FILE        Hold a profile to the service's rules, without service or rights\n"
    "  doctor [ENGINE]   What is missing on this machine, and what to do about it";

using OptionContextPtr = std::unique_ptr<GOptionContext, ReleaseWith<g_option_context_free>>;
using WordsPtr = std::unique_ptr<char*, ReleaseWith<g_strfreev>>;

// Where GLib puts what it has read.
struct RawOptions {
  gboolean json = FALSE;
  gboolean killSwitch = FALSE;
  gboolean connected = FALSE;
  gboolean help = FALSE;
  gboolean version = FALSE;
  char* protocol = nullptr;
  char* id = nullptr;
  char** words = nullptr;
};

struct CommandRow {
  std::string_view name;
  std::size_t fewestArguments;
  std::size_t mostArguments;
  bool takesProfile;
  bool takesKillSwitch;
  bool takesConnected;
};

constexpr std::array kCommands = {
    CommandRow{"status", 0, 0, false, false, true},
    CommandRow{"connect", 1, 1, true, true, false},
    CommandRow{"disconnect", 0, 0, false, false, false},
    CommandRow{"watch", 0, 0, false, false, false},
    CommandRow{"keygen", 0, 0, false, false, false},
    CommandRow{"check", 1, 1, true, false, false},
    CommandRow{"doctor", 0, 4, false, false, false},
};

std::array<GOptionEntry, 9> Entries(RawOptions* raw) {
  return {{
      {"json", 'j', 0, G_OPTION_ARG_NONE, &raw->json, "Answer in JSON", nullptr},
      {"protocol", 'p', 0, G_OPTION_ARG_STRING, &raw->protocol,
       "The profile's protocol, instead of a guess (connect, check)", "NAME"},
      {"kill-switch", 'k', 0, G_OPTION_ARG_NONE, &raw->killSwitch,
       "Let nothing past the tunnel (connect)", nullptr},
      {"id", 0, 0, G_OPTION_ARG_STRING, &raw->id,
       "The profile's name, instead of the file's (connect, check)", "NAME"},
      {"connected", 0, 0, G_OPTION_ARG_NONE, &raw->connected,
       "End with 1 when there is no tunnel (status)", nullptr},
      {"help", 'h', 0, G_OPTION_ARG_NONE, &raw->help, "Show this help", nullptr},
      {"version", 0, 0, G_OPTION_ARG_NONE, &raw->version, "Show the version", nullptr},
      {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &raw->words, nullptr, nullptr},
      {},
  }};
}

std::string TextOf(const GCharPtr& text) {
  return text != nullptr ? text.get() : "";
}

void TakeWords(char** words, CommandLine* line) {
  for (char** word = words; word != nullptr && *word != nullptr; ++word) {
    if (line->command.empty()) {
      line->command = *word;
    } else {
      line->arguments.emplace_back(*word);
    }
  }
}

void Take(RawOptions* raw, CommandLine* line) {
  const GCharPtr protocol(raw->protocol);
  const GCharPtr id(raw->id);
  const WordsPtr words(raw->words);
  line->json = raw->json != FALSE;
  line->killSwitch = raw->killSwitch != FALSE;
  line->connected = raw->connected != FALSE;
  line->protocol = TextOf(protocol);
  line->id = TextOf(id);
  TakeWords(raw->words, line);
}

// What the command does not take; empty when all is well.
std::string Misfit(const CommandRow& command, const CommandLine& line) {
  const std::string name(command.name);
  if ((!line.protocol.empty() || !line.id.empty()) && !command.takesProfile) {
    return "--protocol and --id do not belong to " + name + ".";
  }
  if (line.killSwitch && !command.takesKillSwitch) {
    return "--kill-switch does not belong to " + name + ".";
  }
  if (line.connected && !command.takesConnected) {
    return "--connected does not belong to " + name + ".";
  }
  if (line.arguments.size() < command.fewestArguments) {
    return name + " needs a profile's file, or - for standard input.";
  }
  return line.arguments.size() > command.mostArguments ? "Too many arguments for " + name + "."
                                                       : "";
}

std::string Complaint(const CommandLine& line) {
  if (line.command.empty()) {
    return "No command is given.";
  }
  const auto* found = std::ranges::find(kCommands, line.command, &CommandRow::name);
  return found == kCommands.end() ? "There is no command \"" + line.command + "\"."
                                  : Misfit(*found, line);
}

// The parser forgets what it had read when it comes to something that it does not know.
bool AsksForJson(int argc, char** argv) {
  const std::vector<std::string_view> words(argv, argv + argc);
  const auto end = std::ranges::find(words, "--");
  return std::any_of(words.begin(), end,
                     [](std::string_view word) { return word == "--json" || word == "-j"; });
}

OptionContextPtr MakeContext(const GOptionEntry* entries) {
  OptionContextPtr context(g_option_context_new("COMMAND [ARGUMENT]"));
  g_option_context_set_summary(context.get(), kSummary);
  g_option_context_set_description(context.get(),
                                   "quorvexvpnctl(1) says more, also how it ends for scripts.");
  // Its own help would be printed, and the process ended, inside the parser.
  g_option_context_set_help_enabled(context.get(), FALSE);
  g_option_context_add_main_entries(context.get(), entries, nullptr);
  return context;
}

}  // namespace

Parsed ParseCommandLine(int argc, char** argv, CommandLine* line, std::string* complaint) {
  RawOptions raw;
  const auto entries = Entries(&raw);
  const OptionContextPtr context = MakeContext(entries.data());
  GErrorSlot error;
  const bool understood = g_option_context_parse(context.get(), &argc, &argv, error.Out()) != FALSE;
  Take(&raw, line);
  if (!understood) {
    line->json = AsksForJson(argc, argv);
    *complaint = std::string(error.MessageOr("The options make no sense")) + ".";
    return Parsed::kWrong;
  }
  if (raw.help != FALSE) {
    *complaint = GCharPtr(g_option_context_get_help(context.get(), TRUE, nullptr)).get();
    return Parsed::kHelp;
  }
  if (raw.version != FALSE) {
    return Parsed::kVersion;
  }
  *complaint = Complaint(*line);
  return complaint->empty() ? Parsed::kRun : Parsed::kWrong;
}

}  // namespace quorvex::control
