// settings_cgi behind the web server: curl asks, flash keeps.
#include <regex>
#include <tuple>

#include "base/unique_fd.h"
#include "tests/settings_image.h"

using namespace kt::test;
using kt::unique_fd;
using std::string, std::to_string, std::tuple;

namespace {

constexpr char kUrl[] = "http://127.0.0.1:8080/cgi-bin/settings", kTurn[] = "/tmp/settings_cgi.lock";

int run(const string& command) { return WEXITSTATUS(system(command.c_str())); }

// The status and, without the XML declaration, the body; with `-i` all that comes.
string curl(const string& arguments) {
  const string file = "/tmp/reply." + to_string(getpid());
  EXPECT_EQ(run("curl -s -m 30 -w '%{http_code}' " + arguments + " >" + file), 0) << arguments;
  string reply = read_file(file);
  if (arguments.find("-i ") != reply.npos) return reply;
  const string status = reply.substr(reply.size() - 3) + " ";
  return status + reply.substr(0, reply.size() - 3).erase(0, reply.find('\n') + 1);
}

string get(const string& query) { return curl(kUrl + ("?" + query)); }

string post(const string& document, const string& more = "") {
  const string file = "/tmp/document." + to_string(getpid());
  write_file(file, document);
  return curl("--data-binary @" + file + " " + more + " " + kUrl);
}

// The status and the number of the error of a reply: "422 3"; of a good one "200 0".
string verdict(const string& reply) {
  const size_t number = reply.find("<result errno=\"") + 15;
  return reply.substr(0, 4) + reply.substr(number, reply.find('"', number) - number);
}

string config(const string& content) { return "<config>" + content + "</config>"; }
string user(const string& content) { return config("<users><user>" + content + "</user></users>"); }
string event(const string& content) { return config("<events><event index=\"1\">" + content + "</event></events>"); }
string key(const string& section, const string& name, const string& value) {
  return "<key section=\"" + section + "\" name=\"" + name + "\">" + value + "</key>";
}

// The messages of the event log, newest first, each behind a ';'.
string logged() {
  string log = read_file("/tmp/debug/user/nc.log"), messages;
  for (size_t at = 0, end; (end = log.find('\n', at)) != log.npos; at = end + 1)
    messages += ";" + log.substr(log.find(' ', at) + 1, end - log.find(' ', at) - 1);
  return messages;
}

class Web : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(run("/usr/sbin/httpd -p 127.0.0.1:8080 -h /usr/local/www"), 0); }
  void SetUp() override {
    lose_power();
    ASSERT_EQ(
        run("cp /rom/etc/def_sys.conf /etc; mkdir -p /tmp/standin; rm -f /tmp/standin/auth.log /tmp/debug/user/*"), 0);
    for (const char* device : {kNormalDevice, kBackupDevice}) write_partition(device, string(kDeviceSize, '\xFF'));
    boot();
  }
  void TearDown() override { run("kill $(cat /tmp/hydra.lock 2>/dev/null) 2>/dev/null"); }
  static void boot() { ASSERT_EQ(run("ktctl restore >/dev/null 2>&1"), 0); }

  static auto everything() {
    return tuple(read_file(kSettings), read_partition(kNormalDevice), read_partition(kBackupDevice),
                 read_file("/mnt/ramdisk/crontab"), read_file("/tmp/standin/auth.log"), logged());
  }
};

TEST_F(Web, changes_reach_the_programs_concerned_and_outlive_a_power_cut) {
  const string when = "<schedule><enable>1</enable><item>9,00:00,23:59</item><item>9,23:59,24:00</item></schedule>";
  ASSERT_EQ(run("eventd"), 0);
  EXPECT_EQ(
      post("<?xml version=\"1.0\"?>\n<!-- -->" +
           config(
               "<!-- all at once -->\n"
               "<users><login_check>1</login_check><user><name>bob's</name><password>p&amp;w</password><io_ctrl>1</"
               "io_ctrl></user>"
               "<user><name>$(reboot)</name><password><![CDATA[<`]]></password><adm_ctrl>1</adm_ctrl><pt_ctrl>1</"
               "pt_ctrl></user></users>"
               "<admin><password>secret</password><timeout>9</timeout></admin>"
               "<clock><ntp_server>ntp.example</ntp_server><ntp_date>7</ntp_date><ntp_hour>4</ntp_hour>"
               "<daylight_saving>1</daylight_saving><time_zone>32</time_zone></clock>"
               "<events><trigger>1</trigger><event index=\"10\"><name>x'; is=1 et=$(reboot)</name><enabled>1</enabled>"
               "<actions><action>op1</action><action>sd_rec</action></actions><format>jpg</format><rec3>7</rec3>" +
               when + "</event></events>" + key("SYSTEM", "title", "&lt;a&gt; &amp; \"b\"") +
               key("EVENT", "event_define1", "2,09:00,17:00"))),
      "200 <result errno=\"0\">\n  <changed>users</changed>\n  <changed>admin</changed>\n  <changed>clock</changed>\n"
      "  <changed>events</changed>\n  <changed section=\"SYSTEM\" name=\"title\">key</changed>\n"
      "  <changed section=\"EVENT\" name=\"event_define1\">key</changed>\n</result>\n");
  EXPECT_EQ(read_file("/tmp/standin/auth.log"), "start -user\nstart\nstart\nstart\nstart\nstart\nstart -adm\n");
  EXPECT_NE(read_file("/mnt/ramdisk/crontab").find("0 4 * * 0 root ntp_setcron\n"), string::npos);
  for (const char* text :
       {"The account bob's was added", "The administrator account was changed", "The time server settings were changed",
        "The time zone was changed to number 32", "The daylight saving time was switched on",
        "The setting title of section SYSTEM was changed", "The settings of event 10 were changed",
        "Event 10 (x'; is=1 et=$(reboot)) started", ";The settings were saved;"})
    EXPECT_NE(logged().find(text), string::npos) << text << logged();

  const string queries[] = {"users", "clock", "events", "section=SYSTEM", "section=EVENT"};
  string before;
  for (const string& query : queries) before += get(query);
  lose_power();
  boot();
  for (const string& query : queries) {
    EXPECT_EQ(before.rfind(get(query), 0), 0u) << query << get(query);
    before.erase(0, get(query).size());
  }
  const string bob = "<pt_ctrl>0</pt_ctrl><adm_ctrl>0</adm_ctrl><io_ctrl>1</io_ctrl>",
               reboot = "<pt_ctrl>1</pt_ctrl><adm_ctrl>1</adm_ctrl><io_ctrl>0</io_ctrl>",
               silent = "<audio_in_ctrl>0</audio_in_ctrl><audio_out_ctrl>0</audio_out_ctrl></user>";
  const string users = get("users"), indented = "\n      <name>bob's</name>\n      <pt_ctrl>0</pt_ctrl>\n";
  EXPECT_NE(users.find(indented), string::npos) << users;
  EXPECT_EQ(std::regex_replace(users, std::regex("\n *"), ""),
            "200 <config><admin><name>administrator</name><timeout>9</timeout></admin>"
            "<users limit=\"20\"><login_check>1</login_check><user><name>bob's</name>" +
                bob + silent + "<user><name>$(reboot)</name>" + reboot + silent + "</users></config>");
  for (const char* line :
       {"\nuser1=bob's,p&w\nuser2=$(reboot),<`\nuser3=\n", "\nadmin_password=secret\n", "\ntitle=<a> & \"b\"\n"})
    EXPECT_NE(read_file(kSettings).find(line), string::npos) << line;

  for (const char* query : {"users", "clock", "events"}) {
    const string settings = read_file(kSettings), shown = get(query);
    EXPECT_EQ(verdict(post(shown.substr(4))), "200 0") << "what is shown can be sent";
    EXPECT_TRUE(read_file(kSettings) == settings && get(query) == shown) << query;
  }
}

TEST_F(Web, users_keep_slot_and_password_and_new_ones_take_free_slots) {
  const auto list = [](const string& names) { return config("<users>" + names + "</users>"); };
  const auto one = [](const string& name, const string& more) {
    return "<user><name>" + name + "</name>" + more + "</user>";
  };
  const string all = "<password>1</password><io_ctrl>1</io_ctrl><audio_out_ctrl>1</audio_out_ctrl>";
  EXPECT_EQ(post(list(one("a", all) + one("b", all) + one("c", all))).substr(0, 3), "200");
  EXPECT_EQ(post(list(one("d", "<password/>") + one("c", "<io_ctrl>0</io_ctrl>") + one("b", ""))).substr(0, 3), "200");
  const string settings = read_file(kSettings);
  for (const char* line :
       {"\nuser1=d,\nuser2=b,1\nuser3=c,1\nuser4=\n", "\nio_ctrl=0,1,0,0,", "\naudio_out_ctrl=0,1,1,0,"})
    EXPECT_NE(settings.find(line), string::npos) << line << settings;
  EXPECT_EQ(
      logged().rfind(
          ";The settings were saved;The account c was changed;The account d was added;The account a was removed;", 0),
      0u)
      << logged();
  EXPECT_EQ(run("sed -i s/max_user=20/max_user=2/ " + string(kDefaults) + " " + kSettings), 0);
  EXPECT_EQ(verdict(post(list(one("b", "") + one("c", "") + one("d", "")))), "422 5");
}

TEST_F(Web, hostile_and_wrong_requests_change_nothing) {
  const string pw = "</name><password>p</password>", long_name(33, 'n'), schedule = "<name>a</name><schedule><item>";
  const auto clock = [](const string& content) { return config("<clock>" + content + "</clock>"); };
  const auto hacked = [](const string& section, const string& name) { return config(key(section, name, "1")); };
  const auto item = [=](const string& text) { return event(schedule + text + "</item></schedule>"); };
  string keys, items, deep;
  for (int i = 1; i <= 16; ++i) keys += key("PTZ", "preset" + to_string(i), "a");
  for (int i = 1; i <= 10; ++i) keys += key("IPFILTER", "filter" + to_string(i), "a");
  for (int i = 1; i <= 7; ++i) keys += key("VIDEO", "video_define" + to_string(i), "");
  for (int i = 0; i < 11; ++i) items += "<item>1,00:00,01:00</item>";
  for (int i = 0; i < 3000; ++i) deep += "<a>";
  ASSERT_EQ(post(user("<name>bob" + pw)).substr(0, 3), "200");
  const auto before = everything();
  const string title = key("SYSTEM", "title", "hacked"), good = config(title);
  const std::pair<const char*, std::vector<string>> kCases[] = {
      {"400 2",  // no document, or none of ours

       {"title=hacked", good.substr(0, good.size() - 3), "<settings>" + good + "</settings>",
        "<?xml version=\"1.0\"?>" + good + good, "<?xml version=\"1.0\"?>", config(" "), config(deep),
        config(title + "<reboot/>"), config(title + "reboot"), user("<name>a</name><name>b" + pw),
        user("<name>a<b/>" + pw), config(title + title), hacked("SYSTEM]&#10;[USER", "title"),
        hacked("[USER]", "admin_password"), hacked("SYSTEM", "title=a"), config("<key section=\"SYSTEM\">a</key>")}},
      {"422 3",  // account

       {user("<name>bob,x" + pw), user("<name>x'; reboot" + pw), user("<name>" + pw), user("<password>p</password>"),
        user("<name>" + long_name + pw), user("<name>a\nadmin_password=" + pw),
        user("<name>a&#10;admin_password=" + pw), user("<name>b\xC3\xB6" + pw),
        user("<name>a</name><password>b,c</password>"), user("<name>a</name><password>b;reboot</password>"),
        user("<name>eve</name>"), user("<name>a</name><password>" + string(65, 'p') + "</password>"),
        user("<name>bob</name><adm_ctrl>2</adm_ctrl>"), config("<admin><name/></admin>")}},
      {"422 4",  // account that is there

       {user("<name>administrator" + pw),
        config("<users><user><name>bob</name></user><user><name>bob</name></user></users>")}},
      {"422 3",  // clock

       {clock("<ntp_server>a$(reboot)</ntp_server>"), clock("<ntp_server3>a;reboot</ntp_server3>"),
        clock("<ntp_server2>-x</ntp_server2>"), clock("<ntp_retry>`reboot`</ntp_retry>"),
        clock("<ntp_hour>24</ntp_hour>"), clock("<ntp_hour>1 </ntp_hour>"), clock("<ntp_mode>4294967296</ntp_mode>"),
        clock("<time_zone>33</time_zone>"), clock("<ntp_mode>0</ntp_mode><ntp_hour>1</ntp_hour>"),
        config(title + "<clock><time_zone>85</time_zone></clock>")}},
      {"422 3",  // event

       {event("<name>a|en=b</name>"), event("<name>a\n[USER]</name>"), event("<enabled>1</enabled>"),
        event("<name>" + long_name.substr(1) + "</name>"), config("<events><event><name>a</name></event></events>"),
        config("<events><event index=\"11\"><name>a</name></event></events>"),
        event("<name>a</name><actions><action>reboot</action></actions>"), event("<name>a</name><format>exe</format>"),
        item("2,09:00,09:00"), item("2,09:00,17:00|en=b"), item("2,9:00,17:00")}},
      {"422 3",  // value

       {config(key("SYSTEM", "title", string(505, 'v'))), config(key("VIDEO", "video_define1", "2,09:00,25:00")),
        config(key("SYSTEM", "title", "a\n[USER]\nadmin_password="))}},
      {"422 5",  // too many

       {event("<name>a</name><schedule>" + items + "</schedule>"), config(keys)}},
      {"403 6",  // not to be set by key

       {hacked("USER", "admin_password"), hacked("SYSTEM", "ntp_server2"), hacked("EVENT", "event1_entry"),
        hacked("SYSTEM", "cfg_ver"), hacked("Manufacture", "max_user")}},
      {"404 7",  // unknown key
       {hacked("SYSTEM", "hacked"), hacked("HACKED", "title")}},
      {"413 10",  // too long
       {good + string(20481 - good.size(), ' '), string(1 << 20, 'x')}},
      {"411 9",  // no length
       {"", good + "@-H 'Transfer-Encoding: chunked'"}},
      {"403 6",  // another site's page

       {good + "@-H 'Origin: http://evil.example'", good + "@-H 'Origin: null'"}},
      {"404 7",  // another path

       {good + "@--path-as-is " + kUrl + "/x", good + "@" + kUrl + "?users"}},
      {"405 8",  // method
       {good + "@-X PUT", good + "@-X DELETE"}},
  };
  for (const auto& [answer, requests] : kCases) {
    for (const string& request : requests) {
      SCOPED_TRACE(request.substr(0, 200));
      const size_t more = std::min(request.find('@'), request.size());  // of the options of curl
      const bool other_url = request.find(kUrl, more) != request.npos;
      write_file("/tmp/hostile", request.substr(0, more));
      const string options = more == request.size() ? "" : request.substr(more + 1);
      EXPECT_EQ(verdict(curl("--data-binary @/tmp/hostile " + options + (other_url ? "" : string(" ") + kUrl))),
                answer);
      EXPECT_TRUE(everything() == before);
    }
  }
  const std::pair<const char*, const char*> kQueries[] = {
      {"section=USER", "403 6"},       {"section=NONE", "404 7"}, {"", "400 1"},       {"section=a%0Ab", "400 1"},
      {"section=%5BUSER%5D", "400 1"}, {"section=", "400 1"},     {"users=1", "404 7"}};
  for (const auto& [query, answer] : kQueries) EXPECT_EQ(verdict(get(query)), answer) << query;
  EXPECT_NE(post(user("<name>bob,x" + pw)).find("errstr=\"an account's name has "), string::npos);
  EXPECT_EQ(post(good + string(20480 - good.size(), ' ')).substr(0, 3), "200") << "the longest body";
}

TEST_F(Web, headers_and_secrets) {
  EXPECT_EQ(run("printf 'HEAD /cgi-bin/settings?clock HTTP/1.1\\r\\n\\r\\n' | nc 127.0.0.1 8080 >/tmp/head"), 0);
  const string head = read_file("/tmp/head"), wrong = curl("-i -X PATCH " + string(kUrl));
  for (const char* header :
       {"HTTP/1.1 200 OK\r\n", "Content-Type: text/xml; charset=utf-8\r\n", "Cache-Control: no-store\r\n"})
    EXPECT_NE(head.find(header), string::npos) << head;
  EXPECT_TRUE(head.ends_with("\r\n\r\n")) << "no body: " << head;
  EXPECT_NE(wrong.find("405 Method Not Allowed\r\nAllow: GET, HEAD, POST\r\n"), string::npos) << wrong;
  EXPECT_EQ(post(config(key("WIRELESS", "wl_wpa_psk", "hush") + key("FTP", "ftp_password", "hush")),
                 "-H 'Origin: http://127.0.0.1:8080'")
                .substr(0, 3),
            "200");
  ASSERT_EQ(run("cd /usr/local/bin; rm auth; printf '#!/bin/sh\nenv >/tmp/auth.env\n' >auth; chmod 755 auth"), 0);
  EXPECT_EQ(post(user("<name>a</name><password/>"), "-H 'Proxy: $(reboot)'").substr(0, 3), "200");
  EXPECT_EQ(run("ln -sf /usr/bin/standin /usr/local/bin/auth"), 0);
  const string environment = read_file("/tmp/auth.env");
  EXPECT_TRUE(environment.find("PATH=") != string::npos && environment.find("PROXY") == string::npos) << environment;
  EXPECT_EQ(run("printf 'odd=a\\001<b\n' >>" + string(kSettings)), 0);
  const string shown = get("section=WIRELESS") + get("section=FTP") + get("section=UPGRADE");
  EXPECT_EQ(shown.find("hush"), string::npos) << shown;
  for (const char* element : {"<key name=\"wl_wpa_psk\" secret=\"1\" />", "<key name=\"odd\">a?&lt;b</key>"})
    EXPECT_NE(shown.find(element), string::npos) << shown;
}

TEST_F(Web, requests_at_once_lose_no_change) {
  EXPECT_TRUE(in_processes(6, [](int i) {
    const string name = to_string(i + 1);
    return post(config("<events><event index=\"" + name + "\"><name>e" + name + "</name></event></events>"))
               .substr(0, 3) != "200";
  }));
  for (int i = 1; i <= 6; ++i) EXPECT_NE(get("events").find("<name>e" + to_string(i)), string::npos);
}

TEST_F(Web, nobody_waits_for_ever) {
  const unique_fd locks[] = {unique_fd(open("/tmp/cgi_locker.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666)),
                             unique_fd(open(kTurn, O_RDWR | O_CREAT | O_CLOEXEC, 0666))};
  for (const unique_fd& lock : locks) ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  const string settings = read_file(kSettings),
               half = "printf 'POST /cgi-bin/settings HTTP/1.0\\r\\nContent-Length: 99\\r\\n\\r\\n<config>'";
  EXPECT_TRUE(in_processes(3, [&](int i) {
    if (i == 0) return get("users").rfind("503 <result errno=\"12\"", 0) == 0 ? 0 : 1;
    const auto is_busy = [] {
      return post(config(key("SYSTEM", "title", "a")), "-i ").find("Retry-After: 5\r\n") != string::npos;
    };
    if (i == 1) return is_busy() && flock(locks[1].get(), LOCK_UN) == 0 && is_busy() ? 0 : 1;
    return run("(" + half + "; sleep 13) | nc 127.0.0.1 8080 | grep -q 'errno=\"11\"'");
  }));
  EXPECT_EQ(read_file(kSettings), settings);
}

TEST_F(Web, failures_of_the_camera_are_told) {
  const auto answer = [](const string& title) { return verdict(post(config(key("SYSTEM", "title", title)))); };
  ASSERT_EQ(answer("kept"), "200 0");
  chmod(kNormalDevice, 0444);
  EXPECT_EQ(answer("new"), "500 15");
  chmod(kNormalDevice, 0644);
  EXPECT_TRUE(title_of_settings() == "new" && logged().rfind(";The settings could not be saved, error -2;", 0) == 0);
  EXPECT_EQ(run("cd /mnt/ramdisk; chmod 444 env/system.conf; chmod 555 env"), 0);
  EXPECT_EQ(answer("never"), "500 14");
  EXPECT_EQ(run("chmod 755 /mnt/ramdisk/env"), 0);
  unlink(kSettings);
  EXPECT_EQ(answer("never"), "500 13");
  EXPECT_EQ(verdict(get("section=SYSTEM")), "500 13");
}

}  // namespace
