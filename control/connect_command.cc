// SPDX-License-Identifier: Apache-2.0
#include <glib.h>

#include <csignal>

#include "control/commands.h"
#include "control/connect_follower.h"
#include "control/connect_result.h"
#include "control/conversation.h"
#include "control/disconnection.h"
#include "control/exit_codes.h"
#include "control/output.h"
#include "control/profile.h"
#include "control/progress.h"
#include "runtime/secure_clear.h"

namespace quorvex::control {
namespace {

constexpr const char* kNoService = "The QuorvexVPN service does not answer.";
constexpr const char* kServiceEnded = "The service ended before the tunnel was up.";
constexpr const char* kAskDoctor = "Run \"quorvexvpnctl doctor\" to see what is missing.";
constexpr const char* kSomebodyDisconnected =
    "Somebody asked for a disconnect before the tunnel was up.";
constexpr const char* kLeft =
    "Interrupted while the service had not answered; nothing was started by then.";
constexpr const char* kLeftAtOnce =
    "Interrupted twice; the service goes on by itself, \"quorvexvpnctl disconnect\" stops it.";
constexpr const char* kTakenDown = "Interrupted; the tunnel is down.";

// An answer that takes longer waits for a person at polkit's dialog, which closes when we leave.
constexpr unsigned kAnswerPatienceMs = 1000;

GVariant* ProfileVariant(const Profile& profile, bool killSwitch) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
  const auto add = [&builder](const char* key, GVariant* value) {
    g_variant_builder_add(&builder, "{sv}", key, value);
  };
  add("id", g_variant_new_string(profile.id.c_str()));
  add("protocol", g_variant_new_string(profile.protocol.c_str()));
  add("killSwitch", g_variant_new_boolean(killSwitch ? TRUE : FALSE));
  add("rawConfig", g_variant_new_string(profile.config.text.c_str()));
  return g_variant_new("(@a{sv})", g_variant_builder_end(&builder));
}

// One run of the command: asked, followed, and taken back when interrupted.
class ConnectRun {
 public:
  ConnectRun(BusPtr bus, Profile* wanted, const CommandLine& line)
      : profile(wanted),
        killSwitch(line.killSwitch),
        progress(ProgressKind(line.json)),
        follower(wanted->id),
        disconnection([this](const std::optional<Failure>& failure) { TakenDown(failure); }),
        conversation(std::move(bus), Conversation::Start::kIfNeeded,
                     {.snapshot = [this](const Snapshot& snapshot) { Hear(snapshot); },
                      .log = [this](const LogEntry& entry) { Hear(entry); },
                      .networkPath = {},
                      .appeared = [this] { Ask(); },
                      .vanished = [this] { LoseService(); },
                      .interrupted = [this](int signal) { Interrupt(signal); }}) {}

  ConnectResult Run() {
    const std::int64_t begun = g_get_monotonic_time();
    conversation.EverySecond([this] { progress.Tick(); });
    conversation.Run();
    progress.End();
    result.milliseconds = (g_get_monotonic_time() - begun) / 1000;
    result.killSwitch = follower.GetKillSwitch();
    return result;
  }

 private:
  void Ask() {
    if (asked || interruptCode != 0) {
      return;
    }
    asked = true;
    GVariant* parameters = ProfileVariant(*profile, killSwitch);
    linux_service::SecureClear(&profile->config.text);
    conversation.Call("Connect", parameters,
                      [this](GVariant*, const auto& refusal) { HearAnswer(refusal); });
  }

  void HearAnswer(const std::optional<Failure>& refusal) {
    answered = true;
    if (refusal) {
      Finish(*refusal);
    } else if (interruptCode != 0) {
      TakeDown();
    }
  }

  void Hear(const Snapshot& snapshot) {
    disconnection.Take(snapshot);
    if (!follower.Take(snapshot) && !disconnection.HasBegun()) {
      return;
    }
    if (disconnection.HasBegun() || !follower.IsOver()) {
      progress.Stage(snapshot.stage);
    } else {
      HearEnd();
    }
  }

  void HearEnd() {
    if (follower.GetState() == ConnectFollower::State::kConnected) {
      const bool open =
          killSwitch && follower.GetKillSwitch() != ConnectFollower::KillSwitch::kActive;
      result.exitCode = open ? kExitNoKillSwitch : kExitOk;
      conversation.Quit();
    } else if (follower.GetState() == ConnectFollower::State::kFailed) {
      Finish({kExitConnectionFailed, follower.Error(), ""});
    } else {
      Finish({kExitConnectionFailed, kSomebodyDisconnected, ""});
    }
  }

  void Hear(const LogEntry& entry) {
    follower.Take(entry);
    if (follower.GetState() == ConnectFollower::State::kFollowing) {
      progress.Note(Printable(entry.message));
    }
  }

  void LoseService() {
    if (disconnection.HasBegun()) {
      disconnection.TakeEndOfService();
    } else {
      Finish({kExitUnreachable, asked ? kServiceEnded : kNoService, kAskDoctor});
    }
  }

  // The first time takes the connect back, the second leaves at once.
  void Interrupt(int signal) {
    if (interruptCode != 0) {
      Finish({interruptCode, kLeftAtOnce, ""});
      return;
    }
    interruptCode = signal == SIGINT ? kExitInterrupted : kExitTerminated;
    if (answered) {
      TakeDown();
      return;
    }
    conversation.After(kAnswerPatienceMs, [this] {
      if (!answered) {
        Finish({interruptCode, kLeft, ""});
      }
    });
  }

  void TakeDown() {
    if (!disconnection.HasBegun()) {
      disconnection.Begin(&conversation);
    }
  }

  void TakenDown(const std::optional<Failure>& failure) {
    Finish(failure ? *failure : Failure{interruptCode, kTakenDown, ""});
  }

  void Finish(const Failure& failure) {
    result.exitCode = failure.exitCode;
    result.failure = failure;
    conversation.Quit();
  }

  Profile* profile;
  bool killSwitch;
  bool asked = false;
  bool answered = false;
  int interruptCode = 0;
  ConnectResult result;
  Progress progress;
  ConnectFollower follower;
  Disconnection disconnection;
  Conversation conversation;
};

int Refuse(const Verdict& verdict, bool json) {
  return Report({kExitProfileRefused, verdict.sentence, WhereText(verdict)}, json);
}

int Show(const ConnectResult& result, const Profile& profile, bool json) {
  if (json) {
    Print(ConnectJson(result, profile.id, profile.protocol) + "\n");
  } else if (result.failure) {
    return Report(*result.failure, json);
  } else {
    Print(ConnectText(result, profile.id, profile.protocol));
  }
  return result.exitCode;
}

}  // namespace

// The rules are asked here first, so that nobody is asked for a password in vain. The service asks
// them again; its word counts.
int RunConnect(const CommandLine& line) {
  Failure failure;
  Profile profile;
  if (!LoadProfile(line, &profile, &failure)) {
    return Report(failure, line.json);
  }
  const Verdict verdict = Judge(profile);
  if (!verdict.sentence.empty()) {
    return Refuse(verdict, line.json);
  }
  BusPtr bus = OpenBus(&failure);
  if (bus == nullptr) {
    return Report(failure, line.json);
  }
  // From here on an interrupt is answered in words.
  ConnectRun run(std::move(bus), &profile, line);
  if (!line.json) {
    Print(ProfileText(profile) + "\n");
  }
  return Show(run.Run(), profile, line.json);
}

}  // namespace quorvex::control
