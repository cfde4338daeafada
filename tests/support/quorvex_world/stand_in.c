/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A stand-in for a program of the system, used only where a test needs a fault or an exact record
 * of a call.
 *
 * It decides nothing: it connects to the test, which reads its arguments and environment from
 * /proc, and then does what it is told, one order after the other. An order is one letter, a length
 * (4 bytes, big endian) and that many bytes; an answer is a length and that many bytes.
 */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#define SOCKET_PATH "/run/world/stand-ins"
#define CANNOT_REACH_TEST 126

static int conversation = -1;

static void Fail(const char* what) {
  perror(what);
  _exit(CANNOT_REACH_TEST);
}

static void ReadAll(void* buffer, size_t length) {
  char* position = buffer;
  while (length > 0) {
    ssize_t count = read(conversation, position, length);
    if (count <= 0) {
      _exit(CANNOT_REACH_TEST);
    }
    position += count;
    length -= (size_t)count;
  }
}

static void WriteAll(int descriptor, const void* buffer, size_t length) {
  const char* position = buffer;
  while (length > 0) {
    ssize_t count = write(descriptor, position, length);
    if (count <= 0) {
      return;
    }
    position += count;
    length -= (size_t)count;
  }
}

static void Answer(const void* buffer, size_t length) {
  uint32_t prefix = htonl((uint32_t)length);
  WriteAll(conversation, &prefix, sizeof prefix);
  WriteAll(conversation, buffer, length);
}

/*
 * The last answer is empty, so the test sees the end of the input. What was read becomes the
 * standard input anew, for the real tool that may come after us.
 */
static void ForwardInput(void) {
  char buffer[65536];
  ssize_t count;
  int copy = memfd_create("stdin", MFD_CLOEXEC);
  while ((count = read(STDIN_FILENO, buffer, sizeof buffer)) > 0) {
    WriteAll(copy, buffer, (size_t)count);
    Answer(buffer, (size_t)count);
  }
  lseek(copy, 0, SEEK_SET);
  dup2(copy, STDIN_FILENO);
  close(copy);
  Answer(buffer, 0);
}

static void RunShell(char* script, char** arguments, int count) {
  char** words = calloc((size_t)count + 5, sizeof *words);
  words[0] = "/bin/sh";
  words[1] = "-c";
  words[2] = script;
  memcpy(words + 3, arguments, (size_t)count * sizeof *words);
  pid_t child = fork();
  if (child == 0) {
    execv(words[0], words);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  unsigned char code =
      (unsigned char)(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  Answer(&code, 1);
  free(words);
}

static void DieBy(int number) {
  signal(number, SIG_DFL);
  raise(number);
}

static void Connect(void) {
  struct sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = SOCKET_PATH};
  conversation = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (conversation < 0 || connect(conversation, (struct sockaddr*)&address, sizeof address) != 0) {
    Fail("stand-in: " SOCKET_PATH);
  }
}

static void Obey(char order, char* text, char** argv, int argc) {
  switch (order) {
    case 'T':
      signal(SIGTERM, SIG_IGN);
      return;
    case 'R':
      ForwardInput();
      return;
    case 'O':
      WriteAll(STDOUT_FILENO, text, strlen(text));
      return;
    case 'E':
      WriteAll(STDERR_FILENO, text, strlen(text));
      return;
    case 'S':
      RunShell(text, argv, argc);
      return;
    case 'K':
      DieBy(atoi(text));
      return;
    case 'X':
      execv(text, argv);
      Fail(text);
      return;
    case 'Q':
      _exit(atoi(text));
    default:
      for (;;)
        pause();
  }
}

int main(int argc, char** argv) {
  Connect();
  for (;;) {
    char order;
    uint32_t length;
    ReadAll(&order, 1);
    ReadAll(&length, sizeof length);
    length = ntohl(length);
    char* text = calloc(length + 1, 1);
    ReadAll(text, length);
    Obey(order, text, argv, argc);
    free(text);
  }
}
