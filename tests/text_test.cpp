// Growable text and linked lists.
#include <ktcomm/util_text.h>
#include <string.h>
#include <sys/resource.h>

#include <algorithm>

#include "tests/support.h"

using namespace kt::test;
using std::string;

namespace {

// "size:bytes", all `len` of them, NULs included.
string show(const cf_string* text) {
  if (text == nullptr) return "null";
  EXPECT_TRUE(text->len < text->size && text->str[text->len] == '\0');
  return std::to_string(text->size) + ":" + string(text->str, text->len);
}

string nuls(size_t count) { return string(count, '\0'); }
const string k250(250, 'x'), k300(300, 'x');
constexpr char kText[] = "text";

TEST(StringNew, length_and_head_room_go_by_the_count) {
  const std::pair<cf_string*, string> cases[] = {{cf_string_new(""), "251:"},
                                                 {cf_string_new(kText), "255:text"},
                                                 {cf_string_new(nullptr), "null"},
                                                 {cf_string_new_len(kText, 2), "253:te"},
                                                 {cf_string_new_len("ab", 5), "256:ab" + nuls(3)},
                                                 {cf_string_new_len(nullptr, 3), "null"},
                                                 {cf_string_new_start_end(kText + 1, kText + 2), "253:ex"},
                                                 {cf_string_new_start_end(kText, kText), "252:t"},
                                                 {cf_string_new_start_end(kText + 1, kText), "null"},
                                                 {cf_string_new_start_end(nullptr, kText), "null"},
                                                 {cf_string_new_start_end(kText, nullptr), "null"}};
  for (const auto& [made, expected] : cases) {
    EXPECT_EQ(show(made), expected);
    cf_string_free(made);
  }
}

TEST(StringEdit, copies_and_appends_grow_to_exactly_what_is_needed) {
  struct Edit {
    const char* s;
    int n = -1;  // no count
  };
  const std::tuple<const char*, const char*, std::vector<Edit>, std::vector<Edit>, string> cases[] = {
      // first text (null: a record of zeros), copies, appends, result
      {"copy over a longer text", "longer", {{"ab"}}, {}, "257:ab"},
      {"copy never shrinks", "", {{k300.c_str()}, {"a"}}, {}, "301:a"},
      {"copy cut at the count", "", {{"abcdef", 2}}, {}, "251:ab"},
      {"copy measures, grows by count", "", {{"ab", 251}}, {}, "252:ab"},
      {"append", "ab", {}, {{"cd"}, {"efg", 1}}, "253:abcde"},
      {"append that just fits", "", {}, {{k250.c_str()}}, "251:" + k250},
      {"append past the room", "a", {}, {{k300.c_str()}}, "302:a" + k300},
      {"length goes by the count, the next goes there", "", {}, {{"a", 3}, {"b"}}, "251:a" + nuls(2) + "b"},
      {"old bytes do not show", "old", {{""}}, {{"a", 3}}, "254:a" + nuls(2)},
      {"count past the room", "", {}, {{"ab", 300}}, "301:ab" + nuls(298)},
      {"copy into zeros", nullptr, {{"ab"}}, {}, "3:ab"},
      {"count into zeros", nullptr, {}, {{"ab", 9}, {"c"}}, "11:ab" + nuls(7) + "c"}};
  for (const auto& [name, start, copies, appends, expected] : cases) {
    cf_string* const d = cf_string_new(start != nullptr ? start : "");
    if (start == nullptr) free(d->str), *d = {};
    for (const auto& [s, n] : copies)
      EXPECT_EQ(n < 0 ? cf_string_safe_cp(d, s) : cf_string_safe_cp_n(d, s, unsigned(n)), 0);
    for (const auto& [s, n] : appends)
      EXPECT_EQ(n < 0 ? cf_string_safe_cat(d, s) : cf_string_safe_cat_n(d, s, unsigned(n)), 0);
    for (const auto& [to, s] : {std::pair<cf_string*, const char*>{d, nullptr}, {nullptr, kText}})
      expect_all(-1, {cf_string_safe_cp(to, s), cf_string_safe_cp_n(to, s, 1), cf_string_safe_cat(to, s),
                      cf_string_safe_cat_n(to, s, 1)});
    EXPECT_EQ(show(d), expected) << name;
    cf_string_free(d);
  }
}

TEST(StringEdit, text_may_come_from_the_buffer_itself) {
  cf_string* const text = cf_string_new("0123456789");
  for (int i = 0; i < 8; ++i) EXPECT_EQ(cf_string_safe_cat(text, text->str), 0);  // it moves
  EXPECT_EQ(text->len, 2560U);
  EXPECT_EQ(cf_string_safe_cp(text, text->str + 2553) + cf_string_safe_cp_n(text, text->str, 9000), 0);
  EXPECT_EQ(show(text), "9001:3456789");
  memcpy(text->str + 7, " by hand", 9);
  EXPECT_EQ(cf_string_safe_cat(text, "!"), 0);
  EXPECT_STREQ(text->str, "3456789 by hand!");
  memset(text->str, 'x', text->size);  // not even terminated
  EXPECT_EQ(cf_string_safe_cat(text, "abc"), 0);
  EXPECT_EQ(text->str, string(9000, 'x'));
  cf_string_free(text);
}

#ifndef __SANITIZE_ADDRESS__
TEST(StringEdit, exhausted_memory_leaves_the_record_as_it_was) {
  const auto body = [] {
    cf_string* const text = cf_string_new("kept");
    const rlimit none = {1 << 26, 1 << 26};
    setrlimit(RLIMIT_AS, &none);
    const bool refused = cf_string_new_len("x", 1 << 30) == nullptr && cf_string_safe_cp_n(text, "x", 1 << 30) == -1 &&
                         cf_string_safe_cat_n(text, "x", 1 << 30) == -1;
    return refused && show(text) == "255:kept" ? 0 : 1;
  };
  EXPECT_EQ(in_child(body), 0);
}
#endif

TEST(List, keeps_order_both_ways_over_inserts_and_removals) {
  cf_list links[10], &head = links[0];
  const auto order = [&] {
    string next, prev;
    for (const cf_list* at = head.next; at != &head; at = at->next) next += static_cast<char>('0' + (at - links));
    for (const cf_list* at = head.prev; at != &head; at = at->prev) prev += static_cast<char>('0' + (at - links));
    std::reverse(prev.begin(), prev.end());
    return next == prev ? next : next + " but back " + prev;
  };
  cf_list_init(&head);
  EXPECT_EQ(cf_list_del(&head), -1);
  for (int i = 1; i <= 3; ++i) cf_list_insert_pre(&head, &links[i]);
  EXPECT_EQ(order(), "123");
  for (int i = 4; i <= 6; ++i) cf_list_insert_next(&head, &links[i]);
  cf_list_insert_next(&links[3], &links[7]), cf_list_insert_pre(&links[4], &links[8]);
  EXPECT_EQ(order(), "65841237");
  for (const int i : {6, 7, 4, 5, 8, 1, 2}) EXPECT_EQ(cf_list_del(&links[i]), 0);
  EXPECT_TRUE(links[4].next == &links[1] && links[4].prev == &links[8]);  // left as it was
  EXPECT_EQ(order(), "3");
  EXPECT_TRUE(cf_list_del(&links[3]) == 0 && order().empty());
}

}  // namespace
