// crypt_commands.cpp - texts through the camera's cipher.
#include <errno.h>
#include <ktcomm/util_hash.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "base/io.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/printer.h"

namespace kt::tools {
namespace {

constexpr size_t kLongestText = 65536;
constexpr size_t kLongestCipher = 2 * (kLongestText + 16);  // in hex digits

// Reads standard input to its end, without a line feed there. Returns kDone, or the
// exit code after it has said what is wrong.
int read_input(char* buffer, size_t longest, size_t& length) {
  const ssize_t read = read_fully(STDIN_FILENO, buffer, longest + 2);  // one for the line feed
  if (read < 0) return fail(kSystemError, "standard input: %s", strerror(errno));
  length = static_cast<size_t>(read);
  if (length > 0 && buffer[length - 1] == '\n') --length;
  if (length > longest) {
    return fail(kRefused, "standard input: more than %zu characters", longest);
  }
  return kDone;
}

void print_text(const Request& request, const char* name, std::string_view text) {
  Printer printer(request);
  if (!printer.plain()) return printer.text(name, text);
  (void)fwrite(text.data(), 1, text.size(), stdout);
  (void)putchar('\n');
}

}  // namespace

int encrypt_text(const Request& request) {
  const auto text = allocate<char>(kLongestText + 2);
  const auto cipher = allocate<unsigned char>(kLongestCipher + 1);
  if (text == nullptr || cipher == nullptr) return fail(kSystemError, "out of memory");
  size_t length = 0;
  const int code = read_input(text.get(), kLongestText, length);
  if (code != kDone) return code;
  const int digits =
      kt_aes_encrypt(cipher.get(), reinterpret_cast<const unsigned char*>(text.get()),
                     static_cast<unsigned>(length), 1);
  if (digits < 0) return fail(kSystemError, "standard input: could not be encrypted");
  print_text(request, "cipher",
             {reinterpret_cast<const char*>(cipher.get()), static_cast<size_t>(digits)});
  return kDone;
}

int decrypt_text(const Request& request) {
  constexpr int kWrongPad = -2;
  const auto cipher = allocate<char>(kLongestCipher + 2);
  const auto text = allocate<unsigned char>(kLongestCipher + 1);
  if (cipher == nullptr || text == nullptr) return fail(kSystemError, "out of memory");
  size_t digits = 0;
  const int code = read_input(cipher.get(), kLongestCipher, digits);
  if (code != kDone) return code;
  const int length =
      kt_aes_decrypt(text.get(), reinterpret_cast<const unsigned char*>(cipher.get()),
                     static_cast<int>(digits), 1);
  if (length == kWrongPad) {
    return fail(kRefused, "standard input: no cipher of `ktctl encrypt`: it has another key");
  }
  if (length < 0) {
    return fail(kRefused, "standard input: hex digits in whole blocks of 32 are wanted");
  }
  print_text(request, "text",
             {reinterpret_cast<const char*>(text.get()), static_cast<size_t>(length)});
  return kDone;
}

}  // namespace kt::tools
