// What passes between programs of the camera, with its machine's words of 4 bytes, in plain
// numbers. For the emulated camera only.
#include <dlfcn.h>
#include <ktcomm.h>
#include <limits.h>
#include <string.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "tests/support.h"

using namespace kt::test;
using std::string;

static_assert(sizeof(long) == 4 && sizeof(void*) == 4);

namespace {

string g_control, g_data;  // of the last sendmsg

string bytes(const void* data, size_t count) { return {static_cast<const char*>(data), count}; }

}  // namespace

extern "C" ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  g_control = bytes(message->msg_control, message->msg_controllen);
  g_data = bytes(message->msg_iov->iov_base, message->msg_iov->iov_len);
  return reinterpret_cast<decltype(&sendmsg)>(dlsym(RTLD_NEXT, "sendmsg"))(fd, message, flags);
}

namespace {

// The payload of the next message of a queue, whatever its type.
string payload(int id, int room = 99) {
  struct {
    long type;
    char data[99];
  } message;
  const ssize_t count = msgrcv(id, &message, static_cast<size_t>(room), 0, IPC_NOWAIT);
  return count < 0 ? "(none)" : std::to_string(message.type) + ":" + bytes(message.data, static_cast<size_t>(count));
}

TEST(Words, a_message_goes_without_the_4_bytes_of_its_type) {
  const int id = msg_init(0x4711);
  const char record[] = "\7\0\0\0payload";
  for (const int size : {12, 11, 5, 4}) EXPECT_EQ(msg_send(id, record, size), 0) << size;
  for (const char* expected : {"7:payload\0", "7:payload", "7:p", "7:"}) {
    const string found = payload(id);
    EXPECT_STREQ(found.c_str(), expected);
  }
  for (const int size : {3, 1}) EXPECT_EQ(msg_send(id, record, size), -1) << size;
  EXPECT_EQ(msg_send(id, record, 11), 0);
  string got(12, '#');
  EXPECT_EQ(msg_recv(id, 7, &got[0], 10), -1) << "one byte short";
  EXPECT_EQ(msg_recv(id, 7, &got[0], 11), 7);
  EXPECT_EQ(got, bytes(record, 11) + "#");
  EXPECT_EQ(msg_exit(id), 0);
}

TEST(Words, a_full_trace_file_is_reported_in_24_bytes) {
  EXPECT_EQ(save_debug_to_flash(8, 1, 0x01020304, 0), 0);
  const string words("\0\0\0\0\x08\0\0\0\1\0\0\0\4\3\2\1\0\0\0\0", 20);
  EXPECT_EQ(payload(msgget(0x12345678, 0)), "1:" + words);
}

TEST(Words, descriptors_go_in_a_control_header_of_16_or_20_bytes) {
  const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = {AF_UNIX, "zSOCKET-SERVER"};
  ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) + listen(server, 9), 0);
  string record(2043, 'r');
  for (const auto& [second, header] :
       {std::pair{string("\2\0\0\0", 4), string("\x14\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\2\0\0\0", 20)},
        {string("\xFE\xFF\xFF\xFF"), string("\x10\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0", 16)},
        {string(4, '\0'), string("\x10\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0", 16)}}) {
    record.replace(1374, 4, second);
    EXPECT_EQ(pass_fd_and_message(1, record.data()), 0);
    EXPECT_EQ(g_control.size(), 20u) << "the room is the same";
    EXPECT_EQ(g_control.substr(0, header.size()), header);
    EXPECT_EQ(g_data, record);
  }
  close(server);
  unlink("zSOCKET-SERVER");
}

TEST(Words, numbers_are_those_of_a_word) {
  write_file("/tmp/words", "[w]\nhigh=2147483648\nlow=-2147483649\nlast=-2147483648\n");
  const kt::unique_file file = kt::open_file("/tmp/words", "re");
  for (const auto& [key, expected] : {std::pair{"high", LONG_MAX}, {"low", LONG_MIN}, {"last", LONG_MIN}}) {
    long found = 1;
    EXPECT_EQ(PRO_GetLong("w", key, &found, file.get()), 0);
    EXPECT_EQ(found, expected) << key;
  }
  ASSERT_EQ(write_timestamp_into_file("/tmp/stamp"), 0);
  EXPECT_EQ(read_file("/tmp/stamp").size(), 4u);
  struct Row {
    const char* name;
    int words[6];
  };
  const auto* const rows = reinterpret_cast<const Row*>(mod_define);
  EXPECT_STREQ(rows[16].name, "stunnel_https");
  EXPECT_EQ(bytes(rows[17].words, 24) + bytes(&rows[17].name, 4), string(28, '\0')) << "a row of seven words";
}

}  // namespace
