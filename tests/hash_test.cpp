// MD5, SHA-224/256, CRC-16 and the text cipher, with OpenSSL's EVP as the judge.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ktcomm/util.h>
#include <limits.h>
#include <openssl/aes.h>
#include <openssl/evp.h>
#include <sys/syscall.h>

using Bytes = std::basic_string<unsigned char>;

// What the reads of `scripted_fd` give, in order: an error for 0xFF, otherwise
// at most so many bytes; the last entry goes on for ever.
static int scripted_fd = -1;
static Bytes read_script;
static size_t reads = 0;
static bool fail_key_setup = false;

extern "C" ssize_t read(int fd, void* data, size_t size) {
  if (fd != scripted_fd) return syscall(SYS_read, fd, data, size);
  EXPECT_LE(size, 4096U);
  const unsigned char limit = read_script[std::min(reads++, read_script.size() - 1)];
  return limit == 0xFF ? -1 : syscall(SYS_read, fd, data, std::min(size, size_t{limit}));
}

extern "C" int AES_set_encrypt_key(const unsigned char* key, const int bits, AES_KEY* schedule) {
  static const auto real = reinterpret_cast<decltype(&AES_set_encrypt_key)>(dlsym(RTLD_NEXT, __func__));
  return fail_key_setup ? -1 : real(key, bits, schedule);
}

namespace {

Bytes pattern(size_t count) {
  Bytes bytes;
  for (size_t i = 0; i < count; ++i) bytes += static_cast<unsigned char>(i * 7 + 13 + i / 256);
  return bytes;
}

Bytes raw(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::string hex(const Bytes& bytes) {
  char digits[3];
  std::string text;
  for (const unsigned b : bytes) text.append(digits, size_t(snprintf(digits, 3, "%02x", b)));
  return text;
}

Bytes judge(const EVP_MD* kind, const Bytes& data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EXPECT_EQ(EVP_Digest(data.data(), data.size(), digest, &size, kind, nullptr), 1);
  return Bytes(digest, size);
}

// Room with sentinels; `written` is all up to the last byte that is none.
struct Output {
  Bytes bytes = Bytes(2000, 0xA5);
  operator unsigned char*() { return bytes.data(); }
  Bytes written() const { return bytes.substr(0, bytes.find_last_not_of(0xA5) + 1); }
};

// The digest of a message that comes as `first` bytes, then `step` at a time.
template <typename Context, auto Start, auto Add, auto End>
Bytes digest(const Bytes& data, size_t first, size_t step) {
  Context context;
  Output out;
  memset(&context, 0x5A, sizeof context);
  Start(&context);
  for (size_t at = 0, size = first; at < data.size(); at += size, size = step) {
    Add(&context, data.data() + at, unsigned(std::min(size, data.size() - at)));
    Add(&context, nullptr, 7);
  }
  if constexpr (std::is_same_v<Context, md5_ctx>) {
    return End(&context), Bytes(context.digest, 16);
  } else {
    EXPECT_EQ(End(&context, out) + End(&context, out), 0) << "taken twice";
    EXPECT_EQ(Bytes(context.Message_Block, 64), Bytes(64, 0)) << "the message is kept";
    return out.written();
  }
}

TEST(Hashes, every_length_and_every_split_agree_with_the_judge) {
  const std::pair<const EVP_MD*, Bytes (*)(const Bytes&, size_t, size_t)> kHashes[] = {
      {EVP_md5(), digest<md5_ctx, MD5Initial, MD5Process, MD5Finsh>},
      {EVP_md5(), digest<md5_ctx, kt_md5_init, kt_md5_update, kt_md5_final>},
      {EVP_sha224(), digest<SHA256Context, SHA224Reset, SHA224Input, SHA224Result>},
      {EVP_sha256(), digest<SHA256Context, SHA256Reset, SHA256Input, SHA256Result>}};
  const Bytes whole = pattern(200);
  for (const auto& [kind, run] : kHashes) {
    for (size_t length = 0; length <= 200; ++length) {
      for (const size_t step : {1U, 63U, 64U, 65U, 200U}) {
        ASSERT_EQ(run(pattern(length), 0, step), judge(kind, pattern(length))) << length << "," << step;
        ASSERT_EQ(run(whole, length, step), judge(kind, whole)) << "split at " << length << "," << step;
      }
    }
  }
  md5_ctx ctx;
  MD5Initial(&ctx);
  ctx.count[0] = UINT_MAX - 511;
  MD5Process(&ctx, whole.data(), 65), MD5Finsh(&ctx);
  EXPECT_EQ(hex(Bytes(ctx.buffer + 56, 8)), "0800000001000000") << "the length goes on in its high word";
}

TEST(Sha256, final_bits_end_the_message) {
  const std::tuple<unsigned, unsigned char, unsigned, const char*> kCases[] = {
      {0, 0x68, 5, "d6d3e02a31a84a8caa9718ed6c2057be09db45e7823eb5079ce7a573a3760f95"},
      {55, 0xB1, 7, "f7fe7b05f6be962cf1bac203400662f318419dc42445475fe8c2c1e6aacefbba"},
      {56, 0x5A, 3, "caf6dcbfc9dc13af0a0b42a46ac36bb109a32e81ede5a834b2926b169d31b6f9"}};
  for (const auto& [bytes, bits, count, expected] : kCases) {
    SHA256Context context;
    Output out;
    SHA256Reset(&context), SHA256Input(&context, pattern(bytes).data(), bytes);
    EXPECT_EQ(SHA256FinalBits(&context, 0xFF, 0), 0) << "no bits end nothing";
    EXPECT_EQ((bytes == 0 ? SHA224FinalBits : SHA256FinalBits)(&context, bits, count), 0);
    EXPECT_EQ(SHA256Result(&context, out), 0);
    EXPECT_EQ(hex(out.written()), expected) << bytes;
  }
}

TEST(Sha256, wrong_order_null_arguments_and_2_to_the_64_bits_have_their_codes) {
  SHA256Context c, *const no = nullptr;
  Output out, kept;
  EXPECT_EQ(SHA224Reset(no) + SHA256Reset(no) + SHA256Input(no, out, 1) + SHA256Result(no, kept), 4);
  EXPECT_EQ(SHA256Reset(&c) + SHA256Input(no, out, 0) + SHA256FinalBits(no, 0, 0), 0);
  EXPECT_EQ(SHA256Input(&c, nullptr, 1) + SHA256Result(&c, nullptr) + SHA256FinalBits(no, 0, 1), 3);
  EXPECT_EQ(c.Corrupted, 0);
  const std::vector<int> order = {SHA256FinalBits(&c, 0, 8), SHA256Input(&c, out, 1),   SHA224Result(&c, kept),
                                  SHA256Reset(&c),           SHA256Result(&c, out),     SHA256Input(&c, out, 0),
                                  SHA256Input(&c, out, 1),   SHA256Result(&c, kept),    SHA256Reset(&c),
                                  SHA256Result(&c, out),     SHA256FinalBits(&c, 0, 1), SHA256Result(&c, kept)};
  EXPECT_EQ(order, (std::vector{3, 3, 3, 0, 0, 0, 3, 3, 0, 0, 3, 3}));
  SHA256Reset(&c), c.Message_Block_Index = 30000;
  EXPECT_EQ(SHA256Input(&c, out, 1), 0);
  EXPECT_EQ(c.Message_Block_Index, 30000 % 64 + 1) << "a foreign index stays inside";
  for (const unsigned size : {31U, 32U, 33U}) {
    const int flag = size < 32 ? 0 : 1;
    SHA256Reset(&c);
    c.Length_High = UINT_MAX, c.Length_Low = UINT_MAX - 255;
    EXPECT_EQ(SHA256Input(&c, out, size), 0);
    EXPECT_EQ(SHA256FinalBits(&c, 0, 1), flag) << size;
    EXPECT_EQ(SHA256Result(&c, flag == 0 ? out : kept), flag);
  }
  EXPECT_EQ(kept.written(), Bytes());
}

TEST(Digests, raw_and_text_forms_write_exactly_their_bytes) {
  const Bytes data = pattern(100), md5 = judge(EVP_md5(), data), sha = judge(EVP_sha256(), data);
  Output out[7];
  md5_buffer(data.data(), 100, out[0]);
  md5_buffer_chk(data.data(), 100, out[1], 0);
  md5_buffer_chk(data.data(), 100, out[2], -1);
  EXPECT_EQ(sha256_buffer_chk(out[3], data.data(), 100, 0) + sha256_buffer_chk(out[4], data.data(), 100, 2), 0);
  EXPECT_EQ(sha256_buffer_chk(nullptr, out[0], 1, 0) + sha256_buffer_chk(nullptr, out[0], 1, 1), 2);
  EXPECT_EQ(sha256_buffer_chk(out[5], nullptr, 1, 1), 1);
  md5_buffer(nullptr, 0, out[6]), md5_buffer(nullptr, 1, out[5]), md5_buffer_chk(out[0], 1, nullptr, 1);
  MD5Initial(nullptr), MD5Process(nullptr, out[0], 1), MD5Finsh(nullptr);
  const Bytes expected[] = {md5, md5, raw(hex(md5) + '\0'), sha, raw(hex(sha) + '\0'), Bytes(), judge(EVP_md5(), {})};
  for (size_t i = 0; i < 7; ++i) EXPECT_EQ(out[i].written(), expected[i]) << i;
  for (const int size : {INT_MIN, 31, 32, 33, 100}) {
    Output text;
    char* const room = reinterpret_cast<char*>(text.bytes.data());
    EXPECT_EQ(md5_value_to_str(room, size, out[0]), size < 32 ? -1 : 32);
    EXPECT_EQ(text.written(), expected[2].substr(0, size < 32 ? 0U : size > 32 ? 33U : 32U));
    EXPECT_EQ(md5_value_to_str(nullptr, size, out[0]) + md5_value_to_str(room, size, nullptr), -2);
  }
}

// An open file of 20000 bytes.
struct Stream : testing::Test {
  Stream() { EXPECT_EQ(write(fd, file.data(), file.size()), ssize_t{20000}); }
  ~Stream() override { fclose(stream), scripted_fd = -1; }
  void script_reads(const Bytes& script) { scripted_fd = fd, reads = 0, read_script = script; }
  const Bytes file = pattern(20000), att = pattern(9000);
  FILE* const stream = tmpfile();
  const int fd = fileno(stream);
  Output out;
};

TEST_F(Stream, range_follows_the_attachment_less_its_whole_leading_chunks) {
  for (const int att_len : {INT_MIN, -1, 0, 1, 4095, 4096, 4097, 8191, 8192, 8300}) {
    const unsigned given = unsigned(std::max(att_len, 0)), passed_over = given / 4096 * 4096;
    for (const unsigned length : {0U, 1U, 4095U, 4096U, 4097U, 8192U}) {
      for (const unsigned start : {0U, 5U, 3616U}) {
        const unsigned end = start + length;
        const int plain = att_len == 0 ? md5_stream(out, fd, start, end) : 0;
        EXPECT_EQ(plain + md5_stream_att_data(out, fd, start, end, att.data(), att_len), 0);
        const Bytes head = att.substr(passed_over, given - passed_over);
        EXPECT_EQ(out.written(), judge(EVP_md5(), head + file.substr(start, length + passed_over))) << att_len;
      }
    }
  }
  EXPECT_EQ(md5_stream_att_data(out, fd, 0, 20000, nullptr, 5), 0) << "to the last byte";
}

TEST_F(Stream, end_of_file_is_told_where_there_may_be_an_attachment) {
  const std::tuple<unsigned, unsigned, int, std::string> kCases[] = {{20000, 20001, 0, "0/1"},
                                                                     {19990, 20050, 5, "15/65"},
                                                                     {10000, 30000, 5, "1813/4096"},
                                                                     {19990, 20000, 4096, "10/4096"},
                                                                     {0, UINT_MAX, 9000, "328/4096"}};
  for (const auto& [start, end, att_len, said] : kCases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(md5_stream(out, fd, start, std::max(end, 20001U)), -1) << "silent";
    EXPECT_EQ(md5_stream_att_data(out, fd, start, end, att.data(), att_len), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "md5_check(324): can not read file: " + said + "\n");
  }
  EXPECT_EQ(out.written(), Bytes());
}

TEST_F(Stream, short_reads_go_on_and_failed_ones_count_as_minus_one) {
  Output failed;
  script_reads({100, 1, 127});
  EXPECT_EQ(md5_stream(out, fd, 3, 9003), 0);
  EXPECT_EQ(out.written(), judge(EVP_md5(), file.substr(3, 9000)));
  script_reads({100, 0xFF, 127});
  EXPECT_EQ(md5_stream(out, fd, 0, 5000), 0);
  EXPECT_EQ(out.written(), judge(EVP_md5(), file.substr(0, 99) + file.substr(100, 4901)));
  script_reads({100, 0xFF});
  testing::internal::CaptureStderr();
  EXPECT_EQ(md5_stream_att_data(failed, fd, 0, 5000, file.data(), 10), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(reads, 1U + 111U);
  EXPECT_EQ(md5_stream(failed, 500, 0, 0) + md5_stream(failed, -1, 0, 0), -2) << "cannot be sought";
  EXPECT_EQ(md5_stream(nullptr, fd, 0, 0) + md5_stream(failed, fd, 2, 1), -2);
  EXPECT_EQ(md5_stream_att_data(failed, fd, 2, 1, file.data(), 1), -1);
  EXPECT_EQ(failed.written(), Bytes());
}

TEST(Crc16, is_modbus_with_its_bytes_swapped) {
  EXPECT_EQ(crc16(raw("123456789").data(), 9), 0x374B);
  EXPECT_EQ(crc16(nullptr, 5), 0xFFFF);
  EXPECT_EQ(crc16(pattern(65535).data(), 65535), 0x3FBB);
}

// The judge's AES-256-CBC under the cipher's key and initialisation vector.
Bytes judge_cipher(const Bytes& plain, int padding = 1) {
  unsigned char key[32];
  int size = 0, rest = 0;
  Bytes out(plain.size() + 16, 0), iv(16, 0x5C);
  EVP_CIPHER_CTX* const ctx = EVP_CIPHER_CTX_new();
  EVP_EncryptInit_ex(ctx, EVP_aes_256_cbc(), nullptr, get_encrypt_key(key, 32, 1), iv.data());
  EVP_CIPHER_CTX_set_padding(ctx, padding);
  EVP_EncryptUpdate(ctx, out.data(), &size, plain.data(), int(plain.size()));
  EXPECT_EQ(EVP_EncryptFinal_ex(ctx, out.data() + size, &rest), 1);
  EVP_CIPHER_CTX_free(ctx);
  return out.substr(0, size_t(size) + size_t(rest));
}

TEST(Cipher, every_length_there_and_back_also_in_place) {
  for (unsigned length = 0; length <= 300; ++length) {
    const Bytes plain = pattern(length), cipher = judge_cipher(plain);
    for (const int text : {0, 1}) {
      const Bytes form = text != 0 ? raw(hex(cipher)) + Bytes(1, 0) : cipher;
      const int size = int(form.size()) - text;
      Output sealed, opened, place;
      place.bytes.replace(0, length, plain);
      ASSERT_EQ(kt_aes_encrypt(sealed, plain.data(), length, text), size) << length;
      ASSERT_EQ(sealed.bytes, form + Bytes(2000 - form.size(), 0xA5)) << length;
      ASSERT_EQ(kt_aes_encrypt(place, place, length, text), size);
      ASSERT_EQ(place.bytes, sealed.bytes) << length;
      ASSERT_EQ(kt_aes_decrypt(opened, sealed, size, text), int(length));
      ASSERT_EQ(opened.bytes.substr(0, length + 1), plain + Bytes(1, 0));
      ASSERT_LE(opened.written().size(), cipher.size());
      ASSERT_EQ(kt_aes_decrypt(place, place, size, text), int(length));
      ASSERT_EQ(place.bytes.substr(0, length + 1), plain + Bytes(1, 0));
    }
  }
}

TEST(Cipher, only_the_pad_count_is_checked) {
  for (const int pad : {0, 1, 2, 16, 17, 255}) {
    const Bytes cipher = judge_cipher(pattern(143) + static_cast<unsigned char>(pad), 0);
    EXPECT_EQ(kt_aes_decrypt(Output(), cipher.data(), 144, 0), pad >= 1 && pad <= 16 ? 144 - pad : -2) << pad;
  }
}

TEST(Cipher, what_is_no_cipher) {
  const Bytes cipher = judge_cipher(pattern(40));
  std::string digits = hex(cipher);
  Output out;
  for (const int length : {INT_MIN, -16, 0, 15, 17, 24, 33}) {
    EXPECT_EQ(kt_aes_decrypt(out, cipher.data(), length, 0), -1) << length;
    EXPECT_EQ(kt_aes_decrypt(out, raw(digits).data(), length, 1), -1) << length;
  }
  EXPECT_EQ(kt_aes_encrypt(nullptr, out, 1, 0) + kt_aes_encrypt(out, nullptr, 0, 0), -2);
  EXPECT_EQ(kt_aes_decrypt(nullptr, out, 32, 0) + kt_aes_decrypt(out, nullptr, 32, 0), -2);
  EXPECT_EQ(kt_aes_encrypt(out, cipher.data(), INT_MAX / 2, 1) + kt_aes_encrypt(out, cipher.data(), INT_MAX, 0), -2);
  EXPECT_EQ(kt_aes_encrypt(out, cipher.data(), UINT_MAX, 0), -1);
  fail_key_setup = true;
  EXPECT_EQ(kt_aes_encrypt(out, cipher.data(), 20, 0), -1);
  fail_key_setup = false;
  EXPECT_EQ(out.written(), Bytes());
  for (const int half : {16, 48}) EXPECT_EQ(kt_aes_decrypt(out, raw(digits).data(), half, 1), -1);
  for (const char bad : {'g', 'G', '/', ':', '@', '`', ' ', '\0', '\x10', '\xE1'}) {
    for (const size_t at : {0U, 20U, 21U, 63U}) {
      const std::string wrong = digits.substr(0, at) + bad + digits.substr(at + 1);
      Output cut;
      EXPECT_EQ(kt_aes_decrypt(cut, raw(wrong).data(), 64, 1), -1) << bad << at;
      EXPECT_EQ(cut.written(), cipher.substr(0, at / 2) + Bytes(1, 0));
    }
  }
  for (char& digit : digits) digit = char(toupper(digit));
  EXPECT_EQ(kt_aes_decrypt(out, raw(digits).data(), 96, 1), 40) << "upper case";
}

TEST(GetEncryptKey, two_keys_of_up_to_32_bytes) {
  Output one, two, none;
  EXPECT_EQ(get_encrypt_key(one, 40, 1), one.bytes.data());
  EXPECT_EQ(get_encrypt_key(two, 31, 2), two.bytes.data());
  EXPECT_EQ(get_encrypt_key(none, 0, 1), none.bytes.data());
  EXPECT_EQ(hex(one.written().substr(28)) + hex(two.written().substr(28)), "a3e896f01d9a44");
  for (const int selector : {-1, 0, 3}) EXPECT_EQ(get_encrypt_key(none, 32, selector), nullptr);
  EXPECT_EQ(get_encrypt_key(nullptr, 32, 1), nullptr);
  EXPECT_EQ(none.written(), Bytes());
}

}  // namespace
