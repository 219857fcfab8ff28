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
  EXPECT_LT(text->len, text->size);
  EXPECT_EQ(text->str[text->len], '\0');
  return std::to_string(text->size) + ":" + string(text->str, text->len);
}

string nuls(size_t count) { return string(count, '\0'); }
const string k250(250, 'x'), k300(300, 'x');
constexpr char kText[] = "text";

TEST(StringNew, length_and_head_room_go_by_the_count) {
  const std::pair<cf_string*, string> cases[] = {{cf_string_new(""), "251:"},
                                                 {cf_string_new(kText), "255:text"},
                                                 {cf_string_new_len(kText, 2), "253:te"},
                                                 {cf_string_new_len("ab", 5), "256:ab" + nuls(3)},
                                                 {cf_string_new_start_end(kText + 1, kText + 2), "253:ex"},
                                                 {cf_string_new_start_end(kText, kText), "252:t"}};
  for (const auto& [made, expected] : cases) {
    EXPECT_EQ(show(made), expected);
    cf_string_free(made);
  }
  EXPECT_EQ(cf_string_new(nullptr), nullptr);
  EXPECT_EQ(cf_string_new_len(nullptr, 3), nullptr);
  for (const auto& [start, end] : {std::pair{kText + 1, +kText}, {nullptr, kText}, {kText, nullptr}})
    EXPECT_EQ(cf_string_new_start_end(start, end), nullptr);
  cf_string_free(nullptr);
}

enum Kind { kCp, kCpN, kCat, kCatN };
struct Edit {
  Kind kind;
  const char* s;
  unsigned n = 0;
  int operator()(cf_string* d) const {
    if (kind == kCp) return cf_string_safe_cp(d, s);
    if (kind == kCpN) return cf_string_safe_cp_n(d, s, n);
    return kind == kCat ? cf_string_safe_cat(d, s) : cf_string_safe_cat_n(d, s, n);
  }
};

TEST(StringEdit, copies_and_appends_grow_to_exactly_what_is_needed) {
  const struct {
    const char* name;
    const char* start;  // null: a record of zeros
    std::vector<Edit> edits;
    string expected;
  } cases[] = {{"copy over a longer text", "longer", {{kCp, "ab"}}, "257:ab"},
               {"copy of what just fits", "", {{kCp, k250.c_str()}}, "251:" + k250},
               {"copy of 300", "", {{kCp, k300.c_str()}}, "301:" + k300},
               {"copy never shrinks", "", {{kCp, k300.c_str()}, {kCp, "a"}}, "301:a"},
               {"copy cut at the count", "", {{kCpN, "abcdef", 2}}, "251:ab"},
               {"copy measures, grows by count", "", {{kCpN, "ab", 251}}, "252:ab"},
               {"append", "ab", {{kCat, "cd"}, {kCatN, "efg", 1}}, "253:abcde"},
               {"append that just fits", "", {{kCat, k250.c_str()}}, "251:" + k250},
               {"append past the room", "a", {{kCat, k300.c_str()}}, "302:a" + k300},
               {"length goes by the count", "", {{kCatN, "ab", 5}}, "251:ab" + nuls(3)},
               {"the next goes there", "", {{kCatN, "a", 3}, {kCat, "b"}}, "251:a" + nuls(2) + "b"},
               {"old bytes do not show", "old", {{kCp, ""}, {kCatN, "a", 3}}, "254:a" + nuls(2)},
               {"count past the room", "", {{kCatN, "ab", 300}}, "301:ab" + nuls(298)},
               {"copy into zeros", nullptr, {{kCp, "ab"}}, "3:ab"},
               {"count into zeros", nullptr, {{kCatN, "ab", 9}, {kCat, "c"}}, "11:ab" + nuls(7) + "c"}};
  for (const auto& c : cases) {
    cf_string* const text = c.start != nullptr ? cf_string_new(c.start) : cf_string_new_len("", 0);
    if (c.start == nullptr) free(text->str), *text = {};
    for (const auto& edit : c.edits) EXPECT_EQ(edit(text), 0) << c.name;
    for (const auto& edit : c.edits) EXPECT_EQ(edit(nullptr) + (Edit{edit.kind, nullptr, 1}(text)), -2) << c.name;
    EXPECT_EQ(show(text), c.expected) << c.name;
    cf_string_free(text);
  }
}

TEST(StringEdit, text_may_come_from_the_buffer_itself) {
  cf_string* const text = cf_string_new("0123456789");
  for (int i = 0; i < 8; ++i) EXPECT_EQ(cf_string_safe_cat(text, text->str), 0);  // it moves
  EXPECT_EQ(text->len, 2560U);
  EXPECT_EQ(cf_string_safe_cp(text, text->str + 2553), 0);
  EXPECT_EQ(cf_string_safe_cp_n(text, text->str, 9000), 0);
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
  const auto walk = [&](cf_list* cf_list::*way) {
    string numbers;
    for (const cf_list* at = head.*way; at != &head; at = at->*way) numbers += static_cast<char>('0' + (at - links));
    return numbers;
  };
  const auto expect = [&](string order) {
    EXPECT_EQ(walk(&cf_list::next), order);
    std::reverse(order.begin(), order.end());
    EXPECT_EQ(walk(&cf_list::prev), order);
  };
  cf_list_init(&head);
  expect("");
  EXPECT_EQ(cf_list_del(&head), -1);
  for (int i = 1; i <= 3; ++i) cf_list_insert_pre(&head, &links[i]);
  expect("123");
  for (int i = 4; i <= 6; ++i) cf_list_insert_next(&head, &links[i]);
  expect("654123");
  cf_list_insert_next(&links[3], &links[7]);
  cf_list_insert_pre(&links[4], &links[8]);
  expect("65841237");
  for (const int i : {6, 7, 4, 5, 8, 1, 2}) EXPECT_EQ(cf_list_del(&links[i]), 0);
  EXPECT_TRUE(links[4].next == &links[1] && links[4].prev == &links[8]);  // left as it was
  expect("3");
  EXPECT_EQ(cf_list_del(&links[3]), 0);
  expect("");
}

}  // namespace
