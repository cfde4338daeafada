// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <string_view>

#include "control/doctor_checks.h"
#include "control/messages.h"
#include "runtime/constants.h"

namespace quorvex::control {
namespace {

using linux_service::kBusName;
using linux_service::kPolkitAction;

constexpr const char* kUnit = "quorvexvpn.service";
constexpr const char* kReinstall = "Install QuorvexVPN again, then run \"systemctl reload dbus\".";
constexpr const char* kJournal = "Its reason is in \"journalctl -u quorvexvpn.service\".";
constexpr const char* kRepair =
    "Run \"quorvexvpnctl disconnect\"; if that does not help, restart the machine.";
constexpr const char* kRepairRequired = "; cleanup repair required";
constexpr const char* kNoPolkit = "Install the package polkitd and start polkit.service.";
constexpr const char* kAddRule =
    "Let an administrator add a polkit rule (quorvexvpnctl(1), AUTHORIZATION).";

// Whether the bus has the name in the list that `method` gives.
bool IsListed(GDBusConnection* bus, const char* method) {
  Failure failure;
  const GVariantPtr reply =
      CallAndWait(bus, kBusPeer, method, nullptr, "(as)", kPatienceMs, &failure);
  if (reply == nullptr) {
    return false;
  }
  const GVariantPtr names(g_variant_get_child_value(reply.get(), 0));
  const std::unique_ptr<const char*, ReleaseWith<g_free>> list(
      g_variant_get_strv(names.get(), nullptr));
  return g_strv_contains(list.get(), kBusName) != FALSE;
}

void CheckName(GDBusConnection* bus, Findings* findings) {
  if (IsListed(bus, "ListActivatableNames")) {
    findings->push_back({FindingState::kOk, "bus", "starts the service when it is called", ""});
  } else {
    findings->push_back(
        {FindingState::kMissing, "bus", "does not know how to start the service", kReinstall});
  }
}

Finding FindingOfSummary(const std::string& summary) {
  const bool unclean = summary.ends_with(kRepairRequired);
  return {unclean ? FindingState::kLeftover : FindingState::kOk, "service", "answers: " + summary,
          unclean ? kRepair : ""};
}

// Both states as systemd words them, for example "loaded" and "active".
Finding FindingOfUnit(std::string_view loaded, const std::string& active) {
  if (loaded == "not-found") {
    return {FindingState::kMissing, "unit", std::string(kUnit) + " is not installed",
            "Install QuorvexVPN again, then run \"systemctl daemon-reload\"."};
  }
  const bool failed = active == "failed" || loaded != "loaded";
  return {failed ? FindingState::kMissing : FindingState::kOk, "unit",
          std::string(kUnit) + " is " + active, failed ? kJournal : ""};
}

bool HasAction(GVariant* actions) {
  GVariantIter iterator;
  g_variant_iter_init(&iterator, actions);
  for (GVariantPtr action(g_variant_iter_next_value(&iterator)); action != nullptr;
       action.reset(g_variant_iter_next_value(&iterator))) {
    const char* id = "";
    g_variant_get_child(action.get(), 0, "&s", &id);
    if (std::string_view(id) == kPolkitAction) {
      return true;
    }
  }
  return false;
}

// The caller as polkit knows it: by its unique name on the bus.
GVariant* QuestionAboutMyself(GDBusConnection* bus) {
  GVariantBuilder subject;
  g_variant_builder_init(&subject, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&subject, "{sv}", "name",
                        g_variant_new_string(g_dbus_connection_get_unique_name(bus)));
  constexpr guint32 kNoInteraction = 0;
  return g_variant_new("((sa{sv})sa{ss}us)", "system-bus-name", &subject, kPolkitAction, nullptr,
                       kNoInteraction, "");
}

void CheckRights(GDBusConnection* bus, Findings* findings) {
  Failure failure;
  const GVariantPtr reply =
      CallAndWait(bus, kPolkitPeer, "CheckAuthorization", QuestionAboutMyself(bus), "((bba{ss}))",
                  kPatienceMs, &failure);
  if (reply == nullptr) {
    findings->push_back({FindingState::kUnknown, "rights", failure.message, ""});
    return;
  }
  gboolean authorized = FALSE;
  gboolean challenge = FALSE;
  g_variant_get(reply.get(), "((bb@a{ss}))", &authorized, &challenge, nullptr);
  if (authorized != FALSE) {
    findings->push_back({FindingState::kOk, "rights", "you may manage the VPN", ""});
  } else if (challenge != FALSE) {
    findings->push_back({FindingState::kNote, "rights",
                         "polkit asks for a password before you manage the VPN", ""});
  } else {
    findings->push_back(
        {FindingState::kNote, "rights", "polkit does not let you manage the VPN", kAddRule});
  }
}

}  // namespace

ServiceWord CheckService(GDBusConnection* bus, Findings* findings) {
  CheckName(bus, findings);
  Failure failure;
  const GVariantPtr info = AskService(bus, "GetRuntimeInfo", kPatienceMs, &failure);
  const GVariantPtr snapshot =
      info == nullptr ? nullptr : AskService(bus, "GetConnectionSnapshot", kPatienceMs, &failure);
  if (snapshot == nullptr) {
    findings->push_back(
        {FindingState::kMissing, "service", "does not answer: " + failure.message, kJournal});
    return {};
  }
  findings->push_back(FindingOfSummary(TextIn(info.get(), "summary")));
  return {true, ReadSnapshot(snapshot.get()).stage};
}

void CheckUnit(GDBusConnection* bus, Findings* findings) {
  Failure failure;
  const char* const names[] = {kUnit, nullptr};
  const GVariantPtr reply =
      CallAndWait(bus, kSystemdPeer, "ListUnitsByNames", g_variant_new("(^as)", names),
                  "(a(ssssssouso))", kPatienceMs, &failure);
  const GVariantPtr units(reply != nullptr ? g_variant_get_child_value(reply.get(), 0) : nullptr);
  if (units == nullptr || g_variant_n_children(units.get()) != 1) {
    findings->push_back({FindingState::kUnknown, "unit", "systemd does not answer on the bus", ""});
    return;
  }
  const GVariantPtr unit(g_variant_get_child_value(units.get(), 0));
  constexpr gsize kLoadState = 2;
  constexpr gsize kActiveState = 3;
  const char* loaded = "";
  const char* active = "";
  g_variant_get_child(unit.get(), kLoadState, "&s", &loaded);
  g_variant_get_child(unit.get(), kActiveState, "&s", &active);
  findings->push_back(FindingOfUnit(loaded, active));
}

void CheckPolkit(GDBusConnection* bus, Findings* findings) {
  Failure failure;
  const GVariantPtr reply =
      CallAndWait(bus, kPolkitPeer, "EnumerateActions", g_variant_new("(s)", "C"),
                  "(a(ssssssuuua{ss}))", kPatienceMs, &failure);
  if (reply == nullptr) {
    findings->push_back(
        {FindingState::kMissing, "polkit", "does not answer: " + failure.message, kNoPolkit});
    return;
  }
  if (!HasAction(GVariantPtr(g_variant_get_child_value(reply.get(), 0)).get())) {
    findings->push_back({FindingState::kMissing, "polkit",
                         std::string("has no action ") + kPolkitAction, kReinstall});
    return;
  }
  findings->push_back(
      {FindingState::kOk, "polkit", std::string("knows the action ") + kPolkitAction, ""});
  CheckRights(bus, findings);
}

}  // namespace quorvex::control
