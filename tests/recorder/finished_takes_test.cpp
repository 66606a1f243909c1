// The files of takes: where each is, and the jobs that copy and delete them, with a stick that is really
// mounted.
#include "recorder/finished_takes.h"

#include <algorithm>
#include <atomic>
#include <regex>
#include <set>
#include <span>

#include "recorder/bench.h"
#include "recorder/take_list.h"
#include "tests/scarcity.h"
#include "usb/bench_stick.h"
#include "usb/stored_files.h"

extern std::atomic<bool> are_flushes_held;  // in this program

namespace {

const std::string kTakes = paths::kUsbTakes;
const std::string kStick = paths::kStick;
const std::string kDescription = kTakes + "/" + kGuid + ".json";

// JSON is written with "'" here.
std::string swapped(std::string text, char from, char to) {
  return std::ranges::replace(text, from, to), text;
}

void put(const std::string& path, int size, char with = 'm') {
  if (size >= 0) std::ofstream(path) << std::string(static_cast<size_t>(size), with);
}

std::string description(const std::string& files) {
  return "{'id':'" + kGuid +
         "','name':'n%','asset_id':'a/b','start_time':'1','duration':'0:00:05','files':[" + files +
         "],'note':'x'}";
}

void describe(const std::string& path, const std::string& files) {
  std::ofstream(path) << swapped(description(files), '\'', '"');
}

int request(int (*job)(json_object*, json_owner), const std::string& list) {
  json_owner root(json_tokener_parse(swapped("{'files':" + list + "}", '\'', '"').c_str()));
  json_object* files = json_member(root.get(), "files");
  return job(files, std::move(root));
}
int copy(const std::string& list) { return request(orb_copy_recorder_files, list); }

// The recorder's trace since the last call, the folders of files as "usb:" and "stick:".
std::string traced() {
  return std::regex_replace(std::regex_replace(new_traces("RCDR"), std::regex(kTakes + "/"), "usb:"),
                            std::regex(kStick + "/"), "stick:");
}

std::string await_end() {
  std::string all;
  await([&] { return (all += traced()).ends_with(" end;"); });
  return all;
}

void insert(bool in) { plug(in), step_usb_stick(is_update_on_stick); }

struct stored_takes : testing::Test {
  stored_takes() {
    static const bool is_first = (start_trace(), start_take_file_workers(), true);
    EXPECT_TRUE(is_first);
    clear_stores();
    for (const char* folder : {paths::kUsbVideos, paths::kVideos})
      fs::remove_all(folder), fs::create_directories(folder);
    for (const char* folder : {paths::kStick, "/run/bench/stick"})
      for (const fs::directory_entry& file : fs::directory_iterator(folder)) fs::remove_all(file);
    traced();
  }
  ~stored_takes() override { insert(false); }
};

struct located {
  int sizes[3];  // internal store, USB store, stick; -1: not there
  const char* listed;
};

constexpr located kLocated[] = {
    {{9, 300, -1}, ",'data_store':'Main USB','size':'300','percent_copied':''"},
    {{9, -1, 7}, ",'data_store':'Main USB','size':'-1','percent_copied':'0.0 %'"},
    {{-1, 300, 300}, ",'data_store':'External USB','size':'300','percent_copied':'100.0 %'"},
    {{-1, 300, 100}, ",'data_store':'Main USB','size':'300','percent_copied':'33.3 %'"},
    {{9, -1, -1}, ",'size':'','percent_copied':''"},
    {{-1, 0, 5}, ",'data_store':'Main USB','size':'0','percent_copied':'100.0 %'"},
};

constexpr located kLocatedByVersion1[] = {
    {{9, -1, 7}, ",'data_store':'eMMC','size':9"},
    {{-1, -1, -1}, ""},
    {{-1, -1, 7}, ",'data_store':'Main USB','size':-1,'percent_copied':-7.0"},
    {{8, 4, 7}, ",'data_store':'eMMC','size':8,'percent_copied':0.5"},
    {{-1, 300, 75}, ",'data_store':'Main USB','size':300,'percent_copied':0.25"},
};

void expect_listed(const std::string& in, std::span<const located> table, std::string (*list)()) {
  std::string files;
  std::string expected;
  for (size_t i = 0; i < table.size(); ++i) {
    const std::string number = std::to_string(i);
    const std::string name = in.substr(in.rfind('/') + 1) + number;
    const std::string stores[] = {paths::kVideos, in, kStick};
    for (size_t at = 0; at < 3; ++at) put(stores[at] + "/" + name, table[i].sizes[at]);
    const std::string entry = "'path':'" + name + "','name':'" + name + "'";
    files += (i == 0 ? "{" : ",{") + entry + "}";
    expected += (i == 0 ? "{'id':'" : ",{'id':'") + kGuid + "_" + number + "','parent_id':'" + kGuid + "'," +
                entry + ",'asset_id':'a/b','start_time':'1'" + table[i].listed + "}";
  }
  for (const char* name : {"/take.json", "/.json", "/take.JSON"}) describe(in + name, files);
  for (const char* text : {"{", "[{}]", "7"}) std::ofstream(in + "/not_" + text + ".json") << text;
  fs::create_directory(in + "/folder.json");
  EXPECT_EQ(swapped(list(), '"', '\''), "[" + expected + "]");
  fs::remove_all(in);
  EXPECT_EQ(list(), "[]");
}

TEST_F(stored_takes, are_listed_with_where_they_are) {
  expect_listed(paths::kUsbTakes, kLocated, orb_get_recorder_files);
  expect_listed(paths::kUsbVideos, kLocatedByVersion1, list_recordings);
}

// Whatever has changed since the last listing, by whomever.
TEST_F(stored_takes, are_listed_as_they_are_now) {
  const auto names = [] {
    std::string all;
    const std::string list = swapped(orb_get_recorder_files(), '"', '\'');
    const std::regex name("'name':'(\\w+)'.*?'size':'(\\d*)','percent_copied':'(.*?)'");
    for (std::sregex_iterator at(list.begin(), list.end(), name), end; at != end; ++at)
      all += (*at)[1].str() + (*at)[2].str() + (*at)[3].str() + " ";
    return all;
  };
  const auto list_only = [](const std::string& path, const char* name) {
    describe(path, std::string("{'path':'x','name':'") + name + "'}");
  };
  for (const char* name : {"one", "two", "six"}) put(kTakes + "/" + name, 4);
  list_only(kTakes + "/a.json", "one");
  list_only(kTakes + "/b.json", "two");
  EXPECT_EQ(names(), "one4 two4 ");
  put(kTakes + "/one", 5);
  list_only(kTakes + "/b.json", "six");
  put(kStick + "/one", 5);
  EXPECT_EQ(names(), "one5100.0 % six4 ");
  insert(true);
  put(kStick + "/six", 2);
  list_only(kStick + "/other.json", "two");
  EXPECT_EQ(names(), "one5 six450.0 % ");
  list_only(kTakes + "/aa.json", "two");
  fs::rename(kTakes + "/b.json", kTakes + "/c.json");
  fs::remove(kTakes + "/one");
  EXPECT_EQ(names(), "one two4 six450.0 % ");
  list_only(kTakes + "/new", "two");
  fs::rename(kTakes + "/new", kTakes + "/a.json");
  fs::remove(kTakes + "/aa.json");
  fs::remove(kStick + "/six");
  EXPECT_EQ(names(), "two4 six4 ");
  for (int i = 0; i < 20'000; ++i) put(kTakes + (i % 2 == 0 ? "/even" : "/odd"), 1);  // more than is told
  put(kTakes + "/two", 7);
  EXPECT_EQ(names(), "two7 six4 ");
  put(kTakes + "/two", 8);
  list_only(kTakes + "/b.json", "two");
  for (int free_ones = 0; free_ones < 4; ++free_ones) {  // nothing that failed is kept
    const int lowest = dup(STDERR_FILENO);
    close(lowest);
    const no_more_files none(static_cast<rlim_t>(lowest + free_ones));
    names();
  }
  EXPECT_EQ(names(), "two8 two8 six4 ");
  fs::remove_all(kTakes);
  EXPECT_EQ(names(), "");
  fs::create_directory(kTakes);
  list_only(kTakes + "/a.json", "two");
  EXPECT_EQ(names(), "two ");
}

TEST_F(stored_takes, are_copied_when_the_stick_has_less) {
  EXPECT_EQ(copy("[]"), -1) << "no stick";
  insert(true);
  for (const char* list : {"null", "{}", "'new'"}) EXPECT_EQ(copy(list), -1) << list;
  EXPECT_EQ(traced(), "no copy -1;no copy -1;no copy -1;no copy -1;");
  for (const char* name : {"new", "same", "longer", "cut"}) put(kTakes + "/" + name, 9000);
  for (const auto& [name, size] : {std::pair("same", 9000), {"longer", 9001}, {"cut", 8999}})
    put(kStick + "/" + name, size, 's');
  fs::create_directory(kTakes + "/folder"), fs::create_symlink("/etc/passwd", kTakes + "/link");
  put("/tmp/out", 5);
  EXPECT_EQ(copy("[{'name':'new'},{'name':'same'},{'name':'longer'},{'name':'folder'},{'name':'link'},"
                 "{'name':'../../../tmp/out'},{'name':'..'},{'name':'x\\u0000'},7,{'name':'cut'}]"),
            0);
  EXPECT_EQ(
      await_end(),
      "copy starting;copy 'new';copy 'same';file 'stick:same' exists;copy 'longer';"
      "file 'stick:longer' exists;copy 'folder';file 'usb:folder' missing;copy 'link';"
      "file 'usb:link' missing;copy '../../../tmp/out';file 'usb:' missing;copy '..';"
      "file 'usb:' missing;copy 'x';file 'usb:' missing;copy '';file 'usb:' missing;copy 'cut';copy end;");
  EXPECT_EQ(content(kStick + "/new") + content(kStick + "/cut"), std::string(18'000, 'm'));
  EXPECT_EQ(content(kStick + "/same"), std::string(9000, 's'));
}

// Ejected, or pulled, in the middle of a job: nothing lands in the folder under the mount.
TEST_F(stored_takes, a_stick_stays_until_the_job_lets_go) {
  for (const bool is_pulled : {false, true}) {
    SCOPED_TRACE(is_pulled);
    insert(true), traced();
    for (const char* name : {"/one", "/two"}) put(kTakes + name, 5000), fs::remove(kStick + name);
    are_flushes_held = true;
    EXPECT_EQ(copy("[{'name':'one'},{'name':'two'}]"), 0);
    ASSERT_TRUE(await([] { return fs::exists(kStick + "/one"); }));
    EXPECT_EQ(copy("[]"), 1);
    if (is_pulled) insert(false);
    if (!is_pulled) orb_request_supervisor_eject(), step_usb_stick(is_update_on_stick);
    EXPECT_TRUE(usb_stick_now().mounted);
    are_flushes_held = false;
    EXPECT_EQ(await_end(), std::string("copy starting;copy 'one';no copy 1;") +
                               (is_pulled ? "stick gone;" : "copy 'two';") + "copy end;");
    EXPECT_TRUE(await([] { return step_usb_stick(is_update_on_stick), !usb_stick_now().mounted; }));
    EXPECT_TRUE(fs::is_empty(kStick));
    EXPECT_EQ(content("/run/bench/stick/one"), std::string(5000, 'm'));
    EXPECT_EQ(fs::exists("/run/bench/stick/two"), !is_pulled);
    insert(false);
  }
}

TEST_F(stored_takes, a_copy_that_ends_short_goes_and_the_rest_is_copied) {
  ASSERT_EQ(mount("tmpfs", "/run/bench/stick", "tmpfs", 0, "size=64k"), 0);
  insert(true);
  put(kTakes + "/large", 200'000), put(kTakes + "/small", 50'000), put(kStick + "/large", 10);
  EXPECT_EQ(copy("[{'name':'large'},{'name':'small'}]"), 0);
  EXPECT_EQ(await_end(),
            "copy starting;copy 'large';cp failed 28 'No space left on device';copy 'small';copy end;");
  EXPECT_FALSE(fs::exists(kStick + "/large"));
  EXPECT_EQ(content(kStick + "/small"), std::string(50'000, 'm'));
  insert(false);
  umount("/run/bench/stick");
}

#define A "{'path':'/p','name':'a.mp4'}"
#define B "{'path':'/p','name':'b.jpg'}"
#define OF_TAKE "{'parent_id':'0f7e3a52-8d5c-11ef-9c1a-0242ac120002','name':"

struct deletion {
  const char* files;   // that the description lists
  const char* list;    // what is deleted
  const char* left;    // of the files
  const char* listed;  // afterwards; null: the description is gone
  const char* traced;  // of each entry, after the words of the request
};

constexpr deletion kDeletions[] = {
    {A "," B, OF_TAKE "'a.mp4'}", "b.jpg ", B, "rm 'usb:a.mp4';rm 'usb:a.vtt';"},
    {A "," B ",{'name':'c'}", OF_TAKE "'b.jpg'}", "a.mp4 a.vtt ", A, "rm 'usb:b.jpg';null, no add;"},
    {A "," B, "7,{}," OF_TAKE "'../out'}", "a.mp4 a.vtt b.jpg ", A "," B,
     "file 'usb:' missing;file 'usb:' missing;file 'usb:' missing;"},
    {A, "{'name':'b.jpg'},{'parent_id':'../x','name':'a.mp4'}," OF_TAKE "'a.mp4'}", "", nullptr,
     "rm 'usb:b.jpg';rm 'usb:a.mp4';rm 'usb:a.vtt';file 'usb:a.mp4' missing;file 'usb:a.vtt' missing;rm "
     "parent;"},
};

std::string names_left() {
  std::set<std::string> names;
  for (const fs::directory_entry& file : fs::directory_iterator(kTakes))
    if (file.path().extension() != ".json") names.insert(file.path().filename().string() + " ");
  std::string all;
  for (const std::string& name : names) all += name;
  return all;
}

std::string remove_files(const std::string& list) {
  EXPECT_EQ(request(orb_delete_recorder_files, "[" + list + "]"), 0);
  return std::regex_replace(await_end(), std::regex("delete ('[^']*' '[^']*'|starting|end);"), "");
}

TEST_F(stored_takes, are_deleted_with_their_captions_and_entries) {
  EXPECT_EQ(request(orb_delete_recorder_files, "7"), -1);
  EXPECT_EQ(traced(), "no delete -1;");
  for (const deletion& row : kDeletions) {
    SCOPED_TRACE(row.list);
    for (const char* name : {"a.mp4", "a.vtt", "b.jpg", "../out"}) put(kTakes + "/" + name, 5);
    describe(kDescription, row.files);
    EXPECT_EQ(remove_files(row.list), row.traced);
    EXPECT_EQ(names_left(), row.left);
    EXPECT_EQ(swapped(content(kDescription), '"', '\''),
              row.listed == nullptr ? "nothing" : description(row.listed));
  }
  EXPECT_TRUE(fs::exists(kTakes + "/../out"));
}

// What the disk does not remove keeps its entry, and a take the spelling of its id: the stick knows no case.
TEST_F(stored_takes, keep_what_cannot_be_removed) {
  const std::string other_case = kTakes + "/" + swapped(kGuid, 'f', 'F') + ".json";
  const std::string request = "{'parent_id':'" + swapped(kGuid, 'f', 'F') + "','name':'a.mp4'}";
  put(kTakes + "/a.mp4", 5), put(kTakes + "/a.vtt", 5), put("/tmp/held", 5);
  for (const std::string held : {"/a.mp4", "/a.vtt"}) {
    describe(other_case, A "," B);
    ASSERT_EQ(mount("/tmp/held", (kTakes + held).c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_TRUE(remove_files(request).ends_with("rm failed 16 'Device or resource busy';"));
    umount((kTakes + held).c_str());
    EXPECT_EQ(swapped(content(other_case), '"', '\''), description(A "," B));
  }
  EXPECT_EQ(names_left(), "a.vtt ");
  remove_files(request);
  EXPECT_EQ(swapped(content(other_case), '"', '\''), description(B));
}

TEST_F(stored_takes, lose_what_a_power_cut_left_half_written_beside_them) {
  for (const std::string& name : {kGuid + ".json.new", std::string("n_2026-03-09-14-05-59.vtt.new"),
                                  std::string("other.new"), std::string("other.vtt.new")})
    put(kTakes + "/" + name, 5);
  put(paths::kTakeGuid + std::string(".new"), 5);
  start_take_file_workers();
  EXPECT_EQ(names_left() + std::to_string(fs::exists(paths::kTakeGuid + std::string(".new"))),
            "other.new other.vtt.new 0");
}

TEST(file_workers, one_whose_thread_cannot_be_had_refuses_until_it_can) {
  static std::atomic<int> served = 0;
  const auto act = [](const stored_files&, json_object*, const file_task&) { ++served; };
  static stored_files kind{"/tmp", kTraceRecorder,        "",
                           false,  {"copy", "copy", act}, {"delete", "delete", act}};
  const auto remove_one = [] {
    json_owner list(json_tokener_parse("[{}]"));
    return delete_stored_files(&kind, list.get(), json_owner(json_object_get(list.get())));
  };
  {
    const no_more_threads now;
    start_file_workers(&kind);
    EXPECT_EQ(remove_one(), -1);
  }
  EXPECT_EQ(remove_one(), 0);
  EXPECT_TRUE(await([] { return served == 1; }));
}

// The take that is being recorded or completed, and one that was set aside.
TEST_F(stored_takes, are_not_deleted_before_they_are_complete) {
  for (const std::string& guid_file : {std::string(paths::kTakeGuid), paths::kTakeGuid + ("." + kGuid)}) {
    SCOPED_TRACE(guid_file);
    describe(kDescription, A);
    std::ofstream(guid_file) << kGuid;
    for (const char* name : {"n%_1.mp4", "n%_1.vtt", "n__1_00-00-01-000.jpg", "n%_2.mp4"})
      put(kTakes + "/" + name, 5);
    remove_files(OF_TAKE
                 "'a.mp4'},{'name':'n%_1.mp4'},{'name':'n%_1.vtt'},{'name':'n__1_00-00-01-000.jpg'},"
                 "{'name':'" +
                 kGuid + ".json'},{'name':'n%_2.mp4'}");
    EXPECT_EQ(names_left(), "n%_1.mp4 n%_1.vtt n__1_00-00-01-000.jpg ");
    EXPECT_TRUE(fs::exists(kDescription));
    for (const std::string other_case :
         {"N%_1.MP4", "N__1_00-00-01-000.JPG", "0F7E3A52-8D5C-11EF-9C1A-0242AC120002.JSON"})
      EXPECT_EQ(remove_files("{'name':'" + other_case + "'}"), "take in work '" + other_case + "';");
    fs::remove(guid_file);
    EXPECT_EQ(remove_files(OF_TAKE "'a.mp4'}").substr(25), "file 'usb:a.vtt' missing;rm parent;");
  }
}

}  // namespace
