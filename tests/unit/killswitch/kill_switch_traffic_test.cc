// SPDX-License-Identifier: Apache-2.0
//
// Which packets the kernel lets out while the kill switch is on: the real nft, real sockets, and a
// network of the test's own in which every packet gets out without it.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "killswitch/kill_switch.h"
#include "tests/unit/runtime/case_name.h"
#include "tests/unit/runtime/private_world.h"

namespace quorvex::linux_service {
namespace {

constexpr char kServer4[] = "198.51.100.7";
constexpr char kServer6[] = "2001:db8::5";
constexpr char kStranger4[] = "203.0.113.9";
constexpr char kStranger6[] = "2001:db8::9";
constexpr char kCable[] = "cable0";
constexpr char kTunnel[] = "quorvexvpn";

// Well-known protocol numbers; kUdp goes through a plain socket, the others through a raw one.
constexpr int kUdp = IPPROTO_UDP;
constexpr int kTcp = IPPROTO_TCP;
constexpr int kGre = IPPROTO_GRE;
constexpr int kIcmp = IPPROTO_ICMP;
constexpr int kIcmp6 = IPPROTO_ICMPV6;

struct Packet {
  const char* name;
  int protocol;
  const char* to;
  std::uint16_t port;
  const char* through;
};

class Socket {
 public:
  Socket(int family, int protocol)
      : descriptor(socket(family, protocol == kUdp ? SOCK_DGRAM : SOCK_RAW, protocol)) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { close(descriptor); }
  [[nodiscard]] int Descriptor() const { return descriptor; }

 private:
  int descriptor;
};

struct Destination {
  sockaddr_storage storage = {};
  socklen_t size = 0;
  [[nodiscard]] const sockaddr* Address() const {
    return static_cast<const sockaddr*>(static_cast<const void*>(&storage));
  }
};

template <typename SocketAddress>
Destination AsDestination(const SocketAddress& address) {
  Destination destination;
  std::memcpy(&destination.storage, &address, sizeof(address));
  destination.size = sizeof(address);
  return destination;
}

Destination Parse(const char* text, std::uint16_t port) {
  sockaddr_in ipv4 = {};
  ipv4.sin_family = AF_INET;
  ipv4.sin_port = htons(port);
  if (inet_pton(AF_INET, text, &ipv4.sin_addr) == 1) {
    return AsDestination(ipv4);
  }
  sockaddr_in6 ipv6 = {};
  ipv6.sin6_family = AF_INET6;
  ipv6.sin6_port = htons(port);
  EXPECT_EQ(inet_pton(AF_INET6, text, &ipv6.sin6_addr), 1) << text;
  return AsDestination(ipv6);
}

// Sends one packet; the error's name, "" for none.
std::string Send(const Packet& packet) {
  // A raw IPv6 socket wants no port.
  const Destination to = Parse(packet.to, packet.protocol == kUdp ? packet.port : 0);
  const Socket out(to.storage.ss_family, packet.protocol);
  EXPECT_EQ(setsockopt(out.Descriptor(), SOL_SOCKET, SO_BINDTODEVICE, packet.through,
                       static_cast<socklen_t>(std::strlen(packet.through))),
            0)
      << packet.through;
  // Where the protocol has ports they stand first: source, destination. ICMP's type 8 and ICMPv6's
  // type 128 are echo requests.
  std::array<std::uint8_t, 24> payload = {};
  payload[0] = packet.protocol == kIcmp ? 8 : 128;
  payload[2] = static_cast<std::uint8_t>(packet.port >> 8U);
  payload[3] = static_cast<std::uint8_t>(packet.port & 0xffU);
  const ssize_t sent =
      sendto(out.Descriptor(), payload.data(), payload.size(), 0, to.Address(), to.size);
  return sent >= 0 ? "" : strerrorname_np(errno);
}

class ANetwork : public test::PrivateWorld {
 protected:
  void SetUp() override {
    PrivateWorld::SetUp();
    test::Shell(
        "nft flush ruleset\n"
        "ip link add cable0 type veth peer name far0\n"
        "ip tuntap add dev quorvexvpn mode tun\n"
        "number=0; for link in cable0 quorvexvpn; do number=$((number + 1))\n"
        "  ip address add 10.9.$number.1/24 dev $link\n"
        "  ip address add fd09:$number::1/64 dev $link nodad\n"
        "  ip link set $link up\n"
        "  ip route add default dev $link metric $number\n"
        "  ip -6 route add default dev $link metric $number\n"
        "done\n"
        "ip link set far0 up");
  }
  void TearDown() override {
    test::Shell("nft flush ruleset; ip link delete cable0; ip link delete quorvexvpn");
    PrivateWorld::TearDown();
  }
  static void Apply() {
    std::string error;
    ASSERT_TRUE(ApplyKillSwitch(kTunnel, {kServer4, kServer6}, &error)) << error;
  }
  static void Remove() {
    std::string error;
    ASSERT_TRUE(RemoveKillSwitch(&error)) << error;
  }
};

class AnAllowedPacket : public ANetwork, public ::testing::WithParamInterface<Packet> {};

INSTANTIATE_TEST_SUITE_P(ToServers, AnAllowedPacket,
                         ::testing::Values(Packet{"Udp4", kUdp, kServer4, 51820, kCable},
                                           Packet{"Udp4AnyPort", kUdp, kServer4, 53, kCable},
                                           Packet{"Tcp4", kTcp, kServer4, 443, kCable},
                                           Packet{"Gre4", kGre, kServer4, 0, kCable},
                                           Packet{"Icmp4", kIcmp, kServer4, 0, kCable},
                                           Packet{"Udp6", kUdp, kServer6, 51820, kCable},
                                           Packet{"Tcp6", kTcp, kServer6, 443, kCable},
                                           Packet{"Gre6", kGre, kServer6, 0, kCable}),
                         test::CaseName());

INSTANTIATE_TEST_SUITE_P(ThroughTheTunnel, AnAllowedPacket,
                         ::testing::Values(Packet{"Udp4", kUdp, kStranger4, 53, kTunnel},
                                           Packet{"Tcp4", kTcp, kStranger4, 443, kTunnel},
                                           Packet{"Icmp4", kIcmp, kStranger4, 0, kTunnel},
                                           Packet{"Udp6", kUdp, kStranger6, 53, kTunnel},
                                           Packet{"Tcp6", kTcp, kStranger6, 443, kTunnel}),
                         test::CaseName());

INSTANTIATE_TEST_SUITE_P(ThroughLoopback, AnAllowedPacket,
                         ::testing::Values(Packet{"Udp4", kUdp, "127.0.0.1", 53, "lo"},
                                           Packet{"Udp6", kUdp, "::1", 53, "lo"},
                                           Packet{"Icmp4", kIcmp, "127.0.0.1", 0, "lo"}),
                         test::CaseName());

INSTANTIATE_TEST_SUITE_P(ForTheCableItself, AnAllowedPacket,
                         ::testing::Values(Packet{"Icmp6", kIcmp6, kStranger6, 0, kCable},
                                           Packet{"Icmp6ToNeighbours", kIcmp6, "fd09:1::2", 0,
                                                  kCable},
                                           Packet{"DhcpServer", kUdp, kStranger4, 67, kCable},
                                           Packet{"DhcpClient", kUdp, kStranger4, 68, kCable},
                                           Packet{"Dhcp6Client", kUdp, kStranger6, 546, kCable},
                                           Packet{"Dhcp6Server", kUdp, kStranger6, 547, kCable}),
                         test::CaseName());

TEST_P(AnAllowedPacket, GetsOut) {
  EXPECT_EQ(Send(GetParam()), "") << "without a kill switch";
  Apply();
  EXPECT_EQ(Send(GetParam()), "");
}

class AnyOtherPacket : public ANetwork, public ::testing::WithParamInterface<Packet> {};

INSTANTIATE_TEST_SUITE_P(
    Through, AnyOtherPacket,
    ::testing::Values(
        Packet{"Udp4", kUdp, kStranger4, 53, kCable}, Packet{"Tcp4", kTcp, kStranger4, 443, kCable},
        Packet{"Gre4", kGre, kStranger4, 0, kCable}, Packet{"Icmp4", kIcmp, kStranger4, 0, kCable},
        Packet{"Udp6", kUdp, kStranger6, 53, kCable}, Packet{"Tcp6", kTcp, kStranger6, 443, kCable},
        Packet{"TheLocalNetwork4", kUdp, "10.9.1.2", 53, kCable},
        Packet{"TheLocalNetwork6", kUdp, "fd09:1::2", 53, kCable},
        Packet{"BesideTheServer4", kUdp, "198.51.100.8", 51820, kCable},
        Packet{"BesideTheServer6", kUdp, "2001:db8::6", 51820, kCable},
        Packet{"BelowTheDhcpPorts", kUdp, kStranger4, 66, kCable},
        Packet{"AboveTheDhcpPorts", kUdp, kStranger4, 69, kCable},
        Packet{"BelowTheDhcp6Ports", kUdp, kStranger6, 545, kCable},
        Packet{"AboveTheDhcp6Ports", kUdp, kStranger6, 548, kCable},
        Packet{"TheDhcpPortOfTcp", kTcp, kStranger4, 67, kCable}),
    test::CaseName());

TEST_P(AnyOtherPacket, IsDroppedUntilTheKillSwitchIsRemoved) {
  EXPECT_EQ(Send(GetParam()), "") << "without a kill switch";
  Apply();
  EXPECT_EQ(Send(GetParam()), "EPERM");
  Remove();
  EXPECT_EQ(Send(GetParam()), "") << "after its removal";
}

TEST_F(ANetwork, ClosesForConnectionsThatWereOpenBefore) {
  const Destination to = Parse(kStranger4, 4000);
  const Socket open(AF_INET, kUdp);
  ASSERT_EQ(connect(open.Descriptor(), to.Address(), to.size), 0);
  ASSERT_EQ(send(open.Descriptor(), "x", 1, 0), 1);
  Apply();
  EXPECT_EQ(send(open.Descriptor(), "x", 1, 0), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST_F(ANetwork, ClosesForTheServersOfAnEarlierKillSwitch) {
  const Packet packet = {"", kUdp, kServer4, 51820, kCable};
  Apply();
  EXPECT_EQ(Send(packet), "");
  std::string error;
  EXPECT_TRUE(ApplyKillSwitch(kTunnel, {"198.51.100.9"}, &error));
  EXPECT_EQ(Send(packet), "EPERM");
}

}  // namespace
}  // namespace quorvex::linux_service
