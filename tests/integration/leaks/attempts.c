/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Tries to send in every way it is told, one attempt after the other, for ever:
 *
 *   attempts MICROSECONDS DEVICE ATTEMPT...
 *
 * An attempt is HOW,ADDRESS,PORT. HOW is tcp (a new connection each time), stream (the same one as
 * long as it lasts), udp, dns, icmp, raw (a protocol of its own), header (a UDP packet whose IP
 * header is ours) or packet (the same past the kernel's IP), and may be followed by +bound (to
 * DEVICE), +large (in fragments) and +mark=NUMBER. What cannot be sent is not sent: the wire tells.
 * Each round begins with a line that says when, in seconds since the epoch.
 */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/ip6.h>
#include <netinet/tcp.h>
#include <netinet/udp.h>
#include <netpacket/packet.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#define ECHO_REQUEST 8
#define ECHO_REQUEST6 128
#define PROTOCOL_FOR_EXPERIMENTS 253
#define LARGE 3000

struct Attempt {
  const char* how;
  int bound;
  int large;
  unsigned mark;
  int family;
  struct sockaddr_storage address;
  socklen_t length;
  int socket;
};

static const char* device;

static int Is(const struct Attempt* attempt, const char* how) {
  return strcmp(attempt->how, how) == 0;
}

static int IsRaw(const struct Attempt* attempt) {
  return Is(attempt, "icmp") || Is(attempt, "raw") || Is(attempt, "header");
}

/* Room for any address, at the place where sendto() and connect() want it. */
static struct sockaddr* Target(struct Attempt* attempt) {
  return (struct sockaddr*)&attempt->address;
}

static void SetAddress(struct Attempt* attempt, const char* text, uint16_t port) {
  struct sockaddr_in* ipv4 = (struct sockaddr_in*)&attempt->address;
  struct sockaddr_in6* ipv6 = (struct sockaddr_in6*)&attempt->address;
  if (inet_pton(AF_INET, text, &ipv4->sin_addr) == 1) {
    attempt->family = ipv4->sin_family = AF_INET;
    ipv4->sin_port = htons(port);
    attempt->length = sizeof *ipv4;
    return;
  }
  if (inet_pton(AF_INET6, text, &ipv6->sin6_addr) != 1) {
    fprintf(stderr, "no address: %s\n", text);
    exit(2);
  }
  attempt->family = ipv6->sin6_family = AF_INET6;
  /* A raw socket of IPv6 wants no port but its protocol. */
  ipv6->sin6_port = IsRaw(attempt) ? 0 : htons(port);
  if (IN6_IS_ADDR_MC_LINKLOCAL(&ipv6->sin6_addr)) {
    ipv6->sin6_scope_id = if_nametoindex(device);
  }
  attempt->length = sizeof *ipv6;
}

static void Parse(struct Attempt* attempt, char* text) {
  char* how = strtok(text, ",");
  char* address = strtok(NULL, ",");
  char* port = strtok(NULL, ",");
  if (port == NULL) {
    fprintf(stderr, "not HOW,ADDRESS,PORT: %s\n", text);
    exit(2);
  }
  attempt->how = strtok(how, "+");
  for (char* more = strtok(NULL, "+"); more != NULL; more = strtok(NULL, "+")) {
    attempt->bound |= strcmp(more, "bound") == 0;
    attempt->large |= strcmp(more, "large") == 0;
    if (strncmp(more, "mark=", 5) == 0) {
      attempt->mark = (unsigned)strtoul(more + 5, NULL, 0);
    }
  }
  SetAddress(attempt, address, (uint16_t)atoi(port));
  attempt->socket = -1;
}

static int OpenKind(const struct Attempt* attempt) {
  if (Is(attempt, "tcp") || Is(attempt, "stream")) {
    return socket(attempt->family, SOCK_STREAM | SOCK_NONBLOCK, 0);
  }
  if (Is(attempt, "icmp")) {
    return socket(attempt->family, SOCK_RAW | SOCK_NONBLOCK,
                  attempt->family == AF_INET ? IPPROTO_ICMP : IPPROTO_ICMPV6);
  }
  if (Is(attempt, "raw")) {
    return socket(attempt->family, SOCK_RAW | SOCK_NONBLOCK, PROTOCOL_FOR_EXPERIMENTS);
  }
  if (Is(attempt, "header")) {
    return socket(attempt->family, SOCK_RAW | SOCK_NONBLOCK, IPPROTO_RAW);
  }
  if (Is(attempt, "packet")) {
    return socket(AF_PACKET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  }
  return socket(attempt->family, SOCK_DGRAM | SOCK_NONBLOCK, 0);
}

static void Open(struct Attempt* attempt) {
  int yes = 1;
  unsigned patience = 1500;
  struct linger abandon = {.l_onoff = 1, .l_linger = 0};
  int opened = OpenKind(attempt);
  if (opened < 0) {
    perror(attempt->how);
    exit(1);
  }
  if (attempt->bound) {
    setsockopt(opened, SOL_SOCKET, SO_BINDTODEVICE, device, (socklen_t)strlen(device));
  }
  if (attempt->mark != 0) {
    setsockopt(opened, SOL_SOCKET, SO_MARK, &attempt->mark, sizeof attempt->mark);
  }
  setsockopt(opened, SOL_SOCKET, SO_BROADCAST, &yes, sizeof yes);
  setsockopt(opened, SOL_SOCKET, SO_LINGER, &abandon, sizeof abandon);
  setsockopt(opened, IPPROTO_TCP, TCP_USER_TIMEOUT, &patience, sizeof patience);
  attempt->socket = opened;
}

static void Close(struct Attempt* attempt) {
  close(attempt->socket);
  attempt->socket = -1;
}

static size_t EchoRequest(const struct Attempt* attempt, unsigned char* packet) {
  /* The kernel fills in the checksum of IPv6 alone; all other octets are zero. */
  uint16_t checksum = htons((uint16_t) ~(ECHO_REQUEST << 8));
  packet[0] = attempt->family == AF_INET ? ECHO_REQUEST : ECHO_REQUEST6;
  memcpy(packet + 2, &checksum, sizeof checksum);
  return 8;
}

/* A question for the addresses of leak.test. */
static size_t Question(unsigned char* packet) {
  static const unsigned char kQuestion[] =
      "\x12\x34\x01\x00\x00\x01\x00\x00\x00\x00\x00\x00\x04leak\x04test\x00\x00\x01\x00\x01";
  memcpy(packet, kQuestion, sizeof kQuestion - 1);
  return sizeof kQuestion - 1;
}

static size_t OwnHeader(struct Attempt* attempt, unsigned char* packet) {
  size_t size = attempt->family == AF_INET ? sizeof(struct iphdr) : sizeof(struct ip6_hdr);
  struct udphdr udp = {.dest = htons(9), .len = htons(sizeof(struct udphdr))};
  memcpy(packet + size, &udp, sizeof udp);
  if (attempt->family == AF_INET) {
    struct iphdr head = {.version = 4, .ihl = 5, .ttl = 64, .protocol = IPPROTO_UDP};
    head.tot_len = htons((uint16_t)(size + sizeof udp));
    head.daddr = ((struct sockaddr_in*)&attempt->address)->sin_addr.s_addr;
    memcpy(packet, &head, sizeof head);
  } else {
    struct sockaddr_in6* target = (struct sockaddr_in6*)&attempt->address;
    struct ip6_hdr head = {.ip6_dst = target->sin6_addr};
    head.ip6_flow = htonl(6U << 28);
    head.ip6_plen = htons(sizeof udp);
    head.ip6_nxt = IPPROTO_UDP;
    head.ip6_hlim = 64;
    inet_pton(AF_INET6, "2001:db8:99::1", &head.ip6_src);
    memcpy(packet, &head, sizeof head);
  }
  return size + sizeof udp;
}

static void SendPacket(struct Attempt* attempt, const void* data, size_t size) {
  struct sockaddr_ll everybody = {.sll_family = AF_PACKET, .sll_halen = 6};
  everybody.sll_protocol = htons(attempt->family == AF_INET ? 0x0800 : 0x86dd);
  everybody.sll_ifindex = (int)if_nametoindex(device);
  memset(everybody.sll_addr, 0xff, 6);
  sendto(attempt->socket, data, size, 0, (struct sockaddr*)&everybody, sizeof everybody);
}

static void SendDatagram(struct Attempt* attempt) {
  static unsigned char packet[LARGE];
  size_t size = attempt->large ? LARGE : 8;
  memset(packet, 0, sizeof packet);
  if (Is(attempt, "icmp")) {
    size = EchoRequest(attempt, packet);
  } else if (Is(attempt, "dns")) {
    size = Question(packet);
  } else if (Is(attempt, "header") || Is(attempt, "packet")) {
    size = OwnHeader(attempt, packet);
  }
  if (Is(attempt, "packet")) {
    SendPacket(attempt, packet, size);
  } else {
    sendto(attempt->socket, packet, size, MSG_NOSIGNAL, Target(attempt), attempt->length);
  }
}

static void SendStream(struct Attempt* attempt, int isNew) {
  if (isNew) {
    connect(attempt->socket, Target(attempt), attempt->length);
  } else if (send(attempt->socket, "x", 1, MSG_NOSIGNAL) < 0 && errno != EAGAIN && errno != EPERM) {
    Close(attempt);
  }
}

static void Try(struct Attempt* attempt) {
  int isNew = attempt->socket < 0;
  if (Is(attempt, "tcp") && !isNew) {
    Close(attempt);
    isNew = 1;
  }
  if (isNew) {
    Open(attempt);
  }
  if (Is(attempt, "tcp") || Is(attempt, "stream")) {
    SendStream(attempt, isNew);
  } else {
    SendDatagram(attempt);
  }
}

static void SayWhen(void) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  printf("%lld.%06ld\n", (long long)now.tv_sec, now.tv_nsec / 1000);
  fflush(stdout);
}

int main(int argc, char** argv) {
  if (argc < 4) {
    fprintf(stderr, "attempts MICROSECONDS DEVICE HOW,ADDRESS,PORT...\n");
    return 2;
  }
  struct timespec pause = {.tv_nsec = atol(argv[1]) * 1000};
  device = argv[2];
  int count = argc - 3;
  struct Attempt* attempts = calloc((size_t)count, sizeof *attempts);
  for (int number = 0; number < count; ++number) {
    Parse(&attempts[number], argv[number + 3]);
  }
  for (;;) {
    SayWhen();
    for (int number = 0; number < count; ++number) {
      Try(&attempts[number]);
      nanosleep(&pause, NULL);
    }
  }
}
