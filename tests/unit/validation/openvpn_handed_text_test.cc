// SPDX-License-Identifier: Apache-2.0
//
// The second reading knows which lines the service will replace; this holds it to the replacing.
#include "runtime/openvpn_config.h"
#include "tests/unit/validation/openvpn_text.h"
#include "tests/unit/validation/profile_case.h"
#include "tests/unit/validation/profile_files.h"
#include "validation/openvpn_second_reading.h"

namespace quorvex::linux_service {
namespace {

using test::AfterBasis;
using test::BeforeBasis;
using test::InBlock;

std::string Verdict(const std::string& text) {
  return test::SentenceOf(ValidateAsOpenVpnReads(text));
}

const std::vector<std::string> kDeviceLines = {
    "dev tun5",
    "DEV tun",
    "--dev tun",
    "--Dev\ttun",
    " \v dev tun \r",
    "dev",
    "dev \"open",
    "dev tun #x",
    "\"dev\" x",
    "'--dev' x",
    "\\ dev x",
    "----dev x",
    "device x",
    "dev-type x",
    "-dev x",
    "dev\\ x",
    "devx",
    "--dev=x",
    "#dev x",
    "<dev>",
    "--<ca>\ndev x",
    "<ca> x\ndev x",
    "<ca>\ndev x",
    "</ca>\ndev",
    "\xEF\xBB\xBF"
    "dev x",
    "dev " + std::string(300, 'x'),
    std::string(300, ' ') + "dev x",
};

TEST(TheTextForOpenVpn, IsReadAsTheProfileWas) {
  for (const std::string& line : kDeviceLines) {
    for (const std::string& text : {AfterBasis(line), BeforeBasis(line), InBlock(line), line,
                                    "client\nremote e\n" + line, "<ca>\n" + line + "\n</CA>\n"}) {
      EXPECT_EQ(Verdict(RewriteOpenVpnConfig(text)), Verdict(text)) << text;
    }
  }
}

TEST(TheTextForOpenVpn, PassesWhereTheProfilePassed) {
  for (const std::filesystem::path& file : test::ProfileFiles("openvpn", 25)) {
    const std::string handed = RewriteOpenVpnConfig(test::TextOf(file));
    EXPECT_EQ(Verdict(handed), "") << file.filename();
    EXPECT_NE(handed.find("\ndev tun-quorvexvpn\n"), std::string::npos) << file.filename();
  }
}

}  // namespace
}  // namespace quorvex::linux_service
