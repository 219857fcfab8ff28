// XML documents by path: trees, reading, writing, contents of nodes.
#include <ktcomm/net.h>
#include <mxml.h>
#include <string.h>
#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "tests/taken_trace.h"

using namespace kt::test;

namespace {

using std::string;

struct Deleter {
  void operator()(mxml_node_t* tree) const { del_tree(tree); }
};
using Tree = std::unique_ptr<mxml_node_t, Deleter>;

// Parses in memory that ends with the text, for the sanitizers.
Tree load(const string& text) {
  return Tree(load_tree(std::vector<char>(text.c_str(), text.c_str() + text.size() + 1).data()));
}

// The serialised tree without its line feed; empty for none.
string to_text(const Tree& tree) {
  static char text[2 << 20];
  return string(text, tree ? static_cast<size_t>(mxmlSaveString(tree.get(), text, sizeof text, nullptr) - 1) : 0);
}

string repeated(size_t count, const string& text) {
  string all;
  while (count-- > 0) all += text;
  return all;
}
const string kDeep = repeated(99999, "<a>") + "<a />" + repeated(99999, "</a>"), kDeepPath = repeated(200000, "/a");

// Tables: '#' between rows, '|' between fields, of which missing ones are empty; '@' stands for `big`.
std::vector<std::vector<string>> rows(const string& table, const string& big) {
  std::vector<std::vector<string>> list;
  std::istringstream lines(std::regex_replace(table, std::regex("@"), big));
  for (string line; std::getline(lines, line, '#');) {
    std::istringstream fields(line);
    for (string& field : list.emplace_back(6)) std::getline(fields, field, '|');
  }
  return list;
}

mxml_node_t* const kPreset = reinterpret_cast<mxml_node_t*>(1);

TEST(LoadTree, takes_one_tree_and_says_nothing) {
  testing::internal::CaptureStderr();
  // Text, tree.
  for (const auto& f :
       rows("<a/>|<a />#\xEF\xBB\xBF<a>\n<b x='1'>t &amp; u</b></a>\n |<a>\n<b x=\"1\">t &amp; u</b></a>#"
            "<?xml?>\n<!--c--><a/>|<?xml?>\n<!--c--><a />#<!DOCTYPE a><a/>|<!DOCTYPE a><a />#"
            "<![CDATA[x]]>|<![CDATA[x]]>#<!--c-->|<!--c-->#@|@## #text# <a/>#x<a/>#<a>#<a><b></a>#"
            "</root>#<a/></root>#<a/></root>x<#<a/><b/>#<!--c--><a/>#<a/><!--c-->#<![CDATA[x]]><a/>#<a>&bogus;</a>#"
            "<a x='1' x='2'/>#<a/>\xff#<a/>\xfe#<\xfe\xff\x01#\xff\xfe<\1a#<a>@",
            kDeep)) {
    EXPECT_TRUE(to_text(load(f[0])) == f[1]) << f[0].substr(0, 40);
  }
  EXPECT_EQ(load_tree(nullptr), request_tree);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(LoadTreeFromStdin, reads_exactly_the_announced_bytes) {
  // Length ("~" is none), body ('^' is NUL), tree, what can still be read.
  for (auto& f : rows("20480|<a>@</a>!|<a>@</a>|!#20481|<a>@</a>!||<a>@</a>!#4|<a/><b/>|<a />|<b/>#3|<a><b/>||<b/>#"
                      "9|<a/>^<b/>|<a />#5|<a/>#4|#1|<a/>|< />|a/>#~|<a/>||<a/>#|<a/>||<a/>#0|<a/>||<a/>#"
                      "-4|<a/>||<a/>#+4|<a/>||<a/># 4|<a/>||<a/>#4x|<a/>||<a/>#"
                      "18446744073709551620|<a/>||<a/>",
                      string(20480 - 7, 'x'))) {
    std::replace(f[1].begin(), f[1].end(), '^', '\0');
    write_file("/tmp/body", f[1]);
    EXPECT_NE(freopen("/tmp/body", "re", stdin), nullptr);
    f[0] == "~" ? unsetenv("CONTENT_LENGTH") : setenv("CONTENT_LENGTH", f[0].c_str(), 1);
    EXPECT_EQ(to_text(Tree(load_tree_from_stdin())), f[2]) << f[0];
    for (const char c : f[3] + '\xff') EXPECT_EQ(static_cast<char>(getchar()), c) << f[0];
  }
  setenv("CONTENT_LENGTH", "4", 1);
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  const pid_t writer = start_child([] { return system("{ printf '<a'; sleep 0.1; printf '/>'; } >/tmp/fifo"); });
  EXPECT_NE(freopen("/tmp/fifo", "re", stdin), nullptr);
  interrupt_every_10_ms();
  EXPECT_EQ(to_text(Tree(load_tree_from_stdin())), "<a />");
  ualarm(0, 0);
  EXPECT_EQ(wait_for_child(writer), 0);
}

TEST(Read, by_path) {
  const Tree tree = load(
      "<n><a>1<a/></a><b k='v'><i>x</i><j /><i>y</i></b><a>2</a><t>u&lt;<v/>w</t><d><![CDATA[<&]]></d><n><e/></n></n>");
  // Path, result, text read, value; "~" is an untouched text and no value.
  for (const auto& f :
       rows("/a[1]|0|2|2#//b//i[ +1x]q/|0|y|y#/b[/i[x]|0|x|x#/[-1]/b/[7]/i[1|0|y|y#/n|0|<e />|~#"
            "/b|0|<i>x</i><j /><i>y</i>|~#/b/j|0|~|~#/t|0|u&lt;<v />w|u<#/d|0|<![CDATA[<&]]>|<&#/b@/i|0|x|x#"
            "/n[1]|2#/n/n|2#/i|2#/a[2]|2#/a[10]|2#/a[99999999999999999999]|2#/a[4294967296]|2#"
            "/x/a[-1]|2#/x@|2#/a/x[-1]|1#/a[-99999999999999999999]|1#|500#a/%s|500",
            repeated(300000, "/["))) {
    const int result = atoi(f[1].c_str());
    const char *const path = f[0].c_str(), *const value = xml_get_node_value(tree.get(), path);
    mxml_node_t* node = kPreset;
    char text[1024] = "~";
    take_trace();
    EXPECT_EQ(read_from_xml(tree.get(), path, &node, text), result) << f[0].substr(0, 40);
    EXPECT_EQ(take_trace(), result == 0     ? ""
                            : result == 1   ? "8 read_from_xml():request error\n"
                            : result == 500 ? "8 read_from_xml(): format error , p=" + f[0] + "\n"
                                            : "8 read_from_xml():node is NULL error\n");
    EXPECT_EQ(find_xml_node(tree.get(), path), result == 0 ? node : nullptr);
    EXPECT_EQ(node == kPreset, result != 0);
    EXPECT_EQ(string(text) + (value ? value : "~"), result == 0 ? f[2] + f[3] : "~~") << f[0].substr(0, 40);
  }
  EXPECT_EQ(read_from_xml(nullptr, "/", nullptr, nullptr) + read_from_xml(tree.get(), nullptr, nullptr, nullptr), 2);
  EXPECT_STREQ(xml_get_attr_value(tree.get(), "/b", "k"), "v");
  EXPECT_EQ(xml_get_attr_value(tree.get(), "/x", "k"), xml_get_attr_value(tree.get(), "/b", nullptr));
  for (const size_t size : {63, 64}) EXPECT_EQ(find_xml_node(tree.get(), ("/" + string(size, 'x')).c_str()), nullptr);
}

TEST(Read, text_is_cut_to_the_buffer) {
  for (const size_t size : {760, 1021, 1022, 1023, 1026, 1027, 1028, 5000}) {
    const string content = repeated(150, "<b />") + string(size - 755, '\n') + "<c />";
    char text[1030];
    memset(text, '#', sizeof text);
    EXPECT_EQ(read_from_xml(load("<n>" + content + "</n>").get(), "/n", nullptr, text), 0);
    EXPECT_EQ(string(text) + string(text + 1024, 6), content.substr(0, 1022) + "######") << size;
  }
}

TEST(Write, by_path) {
  // Path, text ("~" is null), mode, result, tree where it changes.
  for (const auto& f :
       rows("/n/new/value|v<|3|0|<n><a>1</a><a>2</a><new><value>v&lt;</value></new></n>#"
            "/new[0]|~|-1|0|<n><a>1</a><a>2</a><new /></n>#/a[2]/b||3|0|<n><a>1</a><a>2</a><a><b /></a></n>#"
            "/a[1]|<x/>y<z/>|1|0|<n><a>1</a><a>2<x />y<z /></a></n>#/a|<x/>|2|0|<n><a><x /></a><a>2</a></n>#"
            "/a|x|4|0|<n><a>x</a><a>2</a></n>#/a|x]|5|0|<n><a>1<![CDATA[x]]]></a><a>2</a></n>#/n|~|6|0#//|~|0|0#"
            "/n[1]/x|x|3|2#/new/x[1]|x|3|2#/a[3]|x|3|2#/a/b[2147483648]|x|3|2#/new/x/y[-1]|x|3|1#|x|3|1#"
            "new|x|3|1#/new/x|x|0|500#/new/x|x|6|500#/a|x|-1|500#/new/x|<x>|1|500#/new/x|&|2|500#"
            "/a|<x/></y>|1|500#/a|<x/></root>|2|500#@[-1]|x|3|1#@/b[1]|x|3|2",
            kDeepPath)) {
    const int mode = atoi(f[2].c_str()), result = atoi(f[3].c_str());
    const Tree tree = load("<n><a>1</a><a>2</a></n>");
    mxml_node_t* node = kPreset;
    EXPECT_EQ(write_to_xml(tree.get(), f[0].c_str(), &node, f[1] == "~" ? nullptr : f[1].c_str(), mode), result);
    EXPECT_EQ(to_text(tree), f[4].empty() ? "<n><a>1</a><a>2</a></n>" : f[4]) << f[0].substr(0, 40);
    EXPECT_EQ(node, result == 0 ? find_xml_node(tree.get(), f[0].c_str()) : kPreset) << f[0].substr(0, 40);
  }
  const Tree tree = load("<n>1</n>");
  EXPECT_EQ(write_to_xml(nullptr, "/", nullptr, "", 1) + write_to_xml(tree.get(), nullptr, nullptr, "", 1), 2);
  EXPECT_EQ(write_to_xml(mxmlGetFirstChild(tree.get()), "/x", nullptr, nullptr, 3), 2) << "below a text";
  EXPECT_EQ(write_to_xml(tree.get(), kDeepPath.c_str(), nullptr, "x", 3), 0);
  EXPECT_STREQ(xml_get_node_value(tree.get(), (kDeepPath + "[0]").c_str()), "x");
}

#ifndef __SANITIZE_ADDRESS__
TEST(Content, stays_when_memory_runs_out) {
  const auto body = [] {
    const Tree tree = load("<n>o<p /></n>");
    const std::string text(1 << 26, 'x');
    const rlimit none = {1 << 26, 1 << 26};
    setrlimit(RLIMIT_AS, &none);
    const int result = add_string_to_node(tree.get(), text.c_str()) + replace_string_to_node(tree.get(), text.c_str());
    return result == 1000 && to_text(tree) == "<n>o<p /></n>" ? 0 : 1;
  };
  EXPECT_EQ(in_child(body), 0);
}
#endif

TEST(Content, of_a_node) {
  int (*const kFunctions[])(mxml_node_t*, const char*) = {
      add_xmlstring_to_node, replace_xmlstring_to_node, add_string_to_node, replace_string_to_node, add_cdata_to_node};
  // Mode, text, tree (none where it is refused), and its value when parsed again.
  for (const auto& f :
       rows("3|a<b>&\"]]>|<n>o<p />a&lt;b&gt;&amp;&quot;]]&gt;</n>|o#3||<n>o<p /></n>|o#"
            "4| <\n> |<n> &lt;\n&gt; </n>| <\n> #4||<n />|~#5|a<]]|<n>o<p /><![CDATA[a<]]]]></n>|o#"
            "5||<n>o<p /></n>|o#5|]]>]]><p/>|<n>o<p /><![CDATA[]]]]><![CDATA[>]]]]><![CDATA[><p/>]]></n>|o#"
            "1|t<b>1</b> <c/>u|<n>o<p />t<b>1</b> <c /></n>|o#1||<n>o<p /></n>|o#1|</root><root>||o#2|R & D||o#"
            "2|t &amp; u|<n>t &amp;amp; u</n>|t &amp; u#2| |<n> </n>| #2||<n />|~#"
            "2|<![CDATA[]]>|<n><![CDATA[]]></n>|#2|@|<n>@</n>|~",
            kDeep)) {
    const auto function = kFunctions[atoi(f[0].c_str()) - 1];
    const Tree tree = load("<n>o<p /></n>");
    EXPECT_EQ(function(tree.get(), f[1].c_str()), f[2].empty() ? 500 : 0) << f[1].substr(0, 40);
    EXPECT_EQ(function(nullptr, "x") + function(tree.get(), nullptr), 1000);
    EXPECT_EQ(to_text(tree), f[2].empty() ? "<n>o<p /></n>" : f[2]) << f[1].substr(0, 40);
    const Tree again = load(to_text(tree));
    const char* const value = xml_get_node_value(again.get(), "/n");
    EXPECT_EQ(value ? value : "~", f[3]) << f[1].substr(0, 40);
  }
  const Tree tree = load("<n>&lt;x/></n>");
  EXPECT_EQ(replace_string_to_node(tree.get(), xml_get_node_value(tree.get(), "/n")), 0) << "by itself";
  EXPECT_EQ(add_string_to_node(mxmlGetFirstChild(tree.get()), "x") + add_string_to_node(load("<!--c-->").get(), "x") +
                add_error_attribute(load("<?xml?>").get(), "1", "2") +
                add_error_attribute(mxmlGetFirstChild(tree.get()), "1", "2"),
            2000);
  take_trace();
  EXPECT_EQ(add_xmlstring_to_node(nullptr, "x") + replace_xmlstring_to_node(tree.get(), "<a b>"), 1000);
  EXPECT_EQ(take_trace(),
            "8 add_xmlstring_to_node(): tree or str is NULL\n8 replace_xmlstring_to_node(): node is NULL\n");
  EXPECT_EQ(add_error_attribute(tree.get(), nullptr, nullptr) + add_error_attribute(tree.get(), "7", "a\"b"), 0);
  EXPECT_EQ(to_text(tree), "<n errno=\"7\" errstr=\"a&quot;b\">&lt;x/&gt;</n>");
  EXPECT_EQ(add_error_attribute(tree.get(), "8", nullptr) + add_error_attribute(nullptr, "1", "2"), 500);
  EXPECT_EQ(to_text(tree), "<n errno=\"8\" errstr=\"a&quot;b\">&lt;x/&gt;</n>");
}

TEST(XmlString, is_read_and_written) {
  char text[1024] = "~";
  mxml_node_t* node = kPreset;
  take_trace();
  EXPECT_EQ(read_from_xmlstr(nullptr, "/a", &node, text) + write_to_xmlstr(nullptr, "/a", "x", 3), 3 + 3);
  EXPECT_EQ(take_trace(), "8 read_from_xmlstr():xml is NULL error\n");
  EXPECT_EQ(read_from_xmlstr("<a>", "/a", &node, text) + read_from_xmlstr("", "/a", &node, text), 1 + 2);
  EXPECT_TRUE(node == kPreset && string(text) == "~");
  EXPECT_EQ(read_from_xmlstr("<a/>t<b><c>1</c></b>", "/root/b", &node, text), 0);
  EXPECT_EQ(text + to_text(Tree(node)), "<c>1</c><b><c>1</c></b>");
  EXPECT_EQ(read_from_xmlstr("<a/>", "/", &node, nullptr), 0);
  EXPECT_EQ(to_text(Tree(node)), "<root><a /></root>");
  // XML before, path, text, mode, result, XML after.
  for (const auto& f : rows("<a>1</a>|/a|2<|4|0|<a>2&lt;</a>#|/a/b|x|3|0|<a><b>x</b></a>#<a>1|/a|x|4|1|<a>1#"
                            "<a/>|/a|x|9|500|<a/>#"
                            "<?xml?>\n<a/>|/root/a[1]|<b/>|1|0|<?xml?>\n<a /><a><b /></a>#<a/>|/a|@|4|0|<a>@</a>#"
                            "<a>@</a>|/a|@y|4|2|<a>@</a>#|/@||3|0|<@ />",
                            string(1015, 'x'))) {
    char xml[1030];
    memset(xml, '#', sizeof xml);
    const int result = write_to_xmlstr(strcpy(xml, f[0].c_str()), f[1].c_str(), f[2].c_str(), atoi(f[3].c_str()));
    EXPECT_EQ(std::to_string(result) + xml + string(xml + 1024, 6), f[4] + f[5] + "######");
  }
}

}  // namespace
