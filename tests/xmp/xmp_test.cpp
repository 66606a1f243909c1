// XMP metadata: packets as bytes, pictures and videos of several writers, and other programs' readers.
#include "xmp/xmp.h"

#include <sys/mman.h>

#include "recorder/bench.h"
#include "tests/scarcity.h"
#include "xmp/media_scan.h"
#include "xmp/packet.h"

static void (*on_flush)(int fd) = nullptr;

// In the C library's place.
int fsync(int fd) {
  if (on_flush != nullptr) on_flush(fd);
  return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

using namespace std::string_literals;  // NOLINT(google-build-using-namespace)

const std::string kSignature = "http://ns.adobe.com/xap/1.0/\0"s;
const std::string kTrailer = "<?xpacket end=\"w\"?>\r\n \r\n \r\n";
const std::string kXmpUuid = "uuid\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC";

std::string shell(const std::string& command) {
  std::string output;
  EXPECT_EQ(run_shell(command, 1000, [&](std::string_view line) { output += std::string(line) + "\n"; }), 0);
  return output;
}

orb_xmp_fields fields_with(const std::string& comment, const std::string& title = "MH 14 \"north\" & <co>") {
  orb_xmp_fields f{"",         "J. Müller", "2026-03-09", "14-05-59",       "Upstream", "ORB Advanced",
                   "SIM-0001", "48.11735",  "-11.51667",  "12:35:19.00 UTC"};
  copy_text(f.project_name, sizeof f.project_name, title);
  copy_text(f.comment, sizeof f.comment, comment);
  return f;
}

std::string packet_of(const orb_xmp_fields& fields, size_t size) {
  std::string packet(size, 'x');
  EXPECT_EQ(orb_xmp_build(fields, packet.data(), size), 0);
  EXPECT_TRUE(packet.starts_with(kSignature) && packet.ends_with(kTrailer));
  return packet;
}

struct xmp : testing::Test {
  xmp() {
    clear_stores(), fs::current_path(paths::kUsbTakes);
    set_stage(recorder_stage::idle);
  }
  ~xmp() override { fs::current_path("/tmp"), fs::remove_all(paths::kUsbTakes); }
};

TEST_F(xmp, texts_come_back_and_always_leave_room_for_the_end) {
  const std::string all(512, 'n'), quotes(512, '"'), text = "a \"b\" & <c> 'd' &amp; &quot; é\n\tf\r";
  const std::pair<std::string, std::string> kNotes[] = {
      {"", ""},
      {text, text},
      {all, all},
      {quotes, quotes.substr(0, 160)},
      {"é" + quotes, "é" + quotes.substr(0, 159)},
      {quotes.substr(0, 159) + "néééé", quotes.substr(0, 159) + "néé"},
      {"no XML: \uFFFE\uFFFF", "no XML: ??"},
      {"bad \xFF\x01 end", "bad ?? end"}};
  for (const auto& [note, kept] : kNotes) {
    orb_xmp_fields read;
    ASSERT_EQ(parse_xmp_packet(packet_of(fields_with(note), 2560), &read), 0);
    EXPECT_STREQ(read.gps_timestamp, "12:35:19.00 UTC");
    EXPECT_EQ(read.comment, kept);
  }
  orb_xmp_fields full = fields_with(quotes, quotes);
  copy_text(full.composer, sizeof full.composer, quotes);
  copy_text(full.scene, sizeof full.scene, quotes);
  for (const size_t size : {1100U, 2560U, 60'000U}) packet_of(full, size);
}

TEST_F(xmp, a_reader_keeps_what_fits) {
  const std::string end = "\n<?xpacket end", latitude = "<exif:GPSLatitude>", date = "<xmpDM:shotDate>";
  const std::string title = "<xmpDM:projectName>\"t\"";
  const std::pair<std::string, std::string> kPackets[] = {
      {latitude + "\"123456789012345é\"" + end, "0 123456789012345|||"},
      {latitude + "\"1\xFF&lt;&bad;\"" + end, "0 1?<&bad;|||"},
      {date + "\"a b c\"" + latitude + end, "0 a b c|||"},
      {date + "\"a b c\"" + end, "0 |a|b c|"},
      {date + "\"" + std::string(80, 'd') + " t\"" + end, "0 |||"},
      {std::string(1002, ' ') + title + end, "0 |||"},
      {std::string(1001, ' ') + title + end, "0 |||t"},
      {end + "\n" + title, "0 |||"},
      {title, "-1 |||t"}};
  for (const auto& [packet, expected] : kPackets) {
    orb_xmp_fields read = fields_with("old");
    std::string found =
        std::to_string(parse_xmp_packet(packet, &read)) + " " + read.comment + read.gps_latitude;
    for (const char* text : {read.shot_date, read.shot_time, read.project_name})
      found += std::string("|") + text;
    EXPECT_EQ(found, expected) << packet;
  }
}

// The note's packet must say all that the old one said but its comment, and must come back itself.
TEST_F(xmp, only_a_packet_that_loses_nothing_is_replaced) {
  const std::string scene = "<xmpDM:scene><rdf:Description rdf:value=\"Upstream\"/></xmpDM:scene>";
  const std::string none = "</rdf:RDF>";
  const struct {
    std::string line, instead;
    bool is_replaced;
    size_t size = 2560;
  } kPackets[] = {
      {none, none, true},
      {none, none, false, 1300},  // no room for the note
      {none, none, false, 5000},  // its end would not be read
      {none, std::string(1100, ' ') + "<rdf:li dc:format=\"x\"/>" + none, false},
      {none, "xmlns:dc=\"http://purl.org/dc/elements/1.1/\"\n" + none, true},
      {none, scene + "\n" + none, true},
      {scene, scene + "\n<xmpDM:scene>=\"other\"", false},
      {scene, "<xmpDM:scene>\n<rdf:Description rdf:value=\"Upstream\"/></xmpDM:scene>", false},
      {scene, "<xmpDM:scene rdf:value=\"Upstream\"/>", false},
      {scene, "<xmpDM:scene><xmp:Label rdf:value=\"Upstream\"/></xmpDM:scene>", false},
      {scene, "<xmpDM:scene><rdf:Alt><rdf:li xml:lang=\"x-default\">Up</rdf:li></rdf:Alt></xmpDM:scene>",
       false},
      {scene, "<xmpDM:scene>=\"Upstream\"", true},
      {scene, "<xmpDM:scene><rdf:Description xml:lang=\"de\" rdf:value=\"Upstream\"/></xmpDM:scene>", false},
      {scene, scene + "<!-- . -->", false},
      {none, "<rdf:li>words</rdf:li>\n" + none, false},
      {none, "<!-- XML whitespace as padding -->\n <!-- mine -->\n" + none, false},
      {"rdf:about=\"\"", "rdf:about=\"uuid:1234\"", false},
      {"<x:xmpmeta", "<x:xmpmeta x:xmptk=\"a b\"", true},
      {"<x:xmpmeta", "<x:xmpmeta xmp:Label=\"a b\"", false},
      {"\"?>\r\n", "\"?> words", false},
      {scene, "<xmpDM:scene>=\"a & b&c\"", true},
      {scene, "<xmpDM:scene>=\"it&apos;s\"", false},
      {scene, "<xmpDM:scene>=\"" + std::string(32, 'x') + "\"", false},
      {"first\"", "it&apos;s\"", true}};
  for (const auto& row : kPackets) {
    std::string old = packet_of(fields_with("first"), row.size);
    old.replace(old.find(row.line), row.line.size(), row.instead);
    orb_xmp_fields fields;
    ASSERT_EQ(parse_xmp_packet(old, &fields), 0);
    copy_text(fields.comment, sizeof fields.comment, std::string(200, 'n'));
    std::string fresh(row.size, 'x');
    orb_xmp_build(fields, fresh.data(), fresh.size());
    EXPECT_EQ(can_replace_packet(old, fresh, fields), row.is_replaced) << row.instead;
  }
  const std::string fresh = packet_of({}, 2560);
  EXPECT_FALSE(can_replace_packet(kSignature + "<rdf:RDF/>" + kTrailer, fresh, {}));
}

xmp_place place_in(const char* name, int fd, size_t size) {
  EXPECT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
  return find_media_format(name)->scan(fd, static_cast<int64_t>(size));
}

TEST_F(xmp, damaged_and_hostile_files_are_looked_through_to_their_end_at_most) {
  const std::string ours = "\xFF\xE1\0\x22"s + kSignature + "abc", dqt = "\xFF\xDB\0\4dq"s;
  const std::string exif = "\xFF\xE1\0\4ex"s, soi = "\xFF\xD8",
                    box = "\0\0\0\x24"s + kXmpUuid + "12345678abcd";
  const std::string moov = "\0\0\0\x20moov"s + std::string(24, 'm');
  using places = std::tuple<int64_t, int64_t, int64_t>;  // of packet, its length, insertion
  const std::tuple<const char*, std::string, places> kFiles[] = {
      {".JpG", soi + "\xFF", {0, 0, -1}},
      {".jpg", soi + dqt + ours + ours, {12, 32, -1}},
      {".jpg", soi + dqt + exif + exif + dqt, {0, 0, 14}},
      {".jpg", soi + "\xFF\xE0\0\4ap\xFF\xE2\0\4ic"s + dqt, {0, 0, 8}},
      {".jpg", soi + "\xFF\xDD\0\4\xFF\xDBqq\xFF\xFE\0\4co"s, {0, 0, 6}},  // not skipped by its length
      {".jpg", soi + "\xFF\xE0\0\x0A\xFF\xDB\0\4dqxx"s + dqt, {0, 0, 14}},
      {".jpg", soi + "\xFF\xFF\xFF" + exif, {0, 0, 5}},
      {".jpg", soi + "\xFF\xDA\0\2"s + dqt, {0, 0, -1}},
      {".jpg", soi + "\xFF\xC4\0\0\xFF\xC4\0\1"s + dqt, {0, 0, 10}},
      {".jpg", soi + ours.substr(0, 30), {0, 0, 2}},
      {".jpg", soi + "\xFF\xE1\0\x1E"s + kSignature, {0, 0, 2}},  // the signature is longer than the segment
      {".mp4", moov + box, {64, 4, -1}},
      {".mp4", moov.substr(0, 31), {0, 0, -1}},
      {".mp4", moov + "\0\0\0\0mdat"s + moov + box, {0, 0, 32}},
      {".mp4", "\0\0\0\1mdat\0\0\0\0\0\0\0\x20"s + std::string(16, 'x') + moov, {0, 0, 64}},
      {".mp4", "\0\0\0\1mdat\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s + moov + box, {0, 0, -1}},
      {".mp4", "\0\0\0\x20"s + kXmpUuid + "12345678" + moov, {0, 0, 64}},  // an empty packet
      {".mp4", moov + "\0\0\0\x25"s + box.substr(4), {0, 0, 32}},
      {".mp4", "\0\0\0\1"s + box.substr(4) + moov, {0, 0, -1}}};
  for (const auto& [name, bytes, expected] : kFiles) {
    const unique_fd fd(memfd_create("media", MFD_CLOEXEC));
    EXPECT_TRUE(write_all(fd.get(), bytes));
    const xmp_place place = place_in(name, fd.get(), bytes.size());
    EXPECT_EQ(places(place.packet, place.length, place.insertion), expected) << testing::PrintToString(bytes);
  }
  const unique_fd unreadable(open("unreadable", O_WRONLY | O_CREAT, 0600));
  for (const char* name : {".jpg", ".mp4"}) EXPECT_FALSE(place_in(name, unreadable.get(), 9).was_read);
  const unique_fd endless(memfd_create("media", MFD_CLOEXEC));
  EXPECT_EQ(place_in(".jpg", endless.get(), size_t{1} << 42).insertion, -1);
}

constexpr char kMakeMedia[] = R"(
  picture="ffmpeg -v error -f lavfi -i testsrc=s=160x120:d=1"
  $picture -frames:v 1 ffmpeg.jpg
  $picture ffmpeg.mp4
  gst-launch-1.0 -q videotestsrc num-buffers=1 ! jpegenc ! filesink location=gst.jpg
  gst-launch-1.0 -q videotestsrc num-buffers=2 ! x264enc ! mp4mux ! filesink location=gst.mp4
  /usr/bin/convert -size 90x60 plasma: -interlace Plane progressive.jpg
  /usr/bin/convert -size 90x60 plasma: -set comment words comment.JPG
  /usr/bin/convert -size 90x60 plasma: ppm:- | cjpeg -progressive -restart 1 >cjpeg.jpg
  { head -c 20 gst.jpg; printf '\377\342\0\022ICC_PROFILE\0\001\001ic'; tail -c +21 gst.jpg; } >icc.jpg
  cp ffmpeg.jpg exif.jpg; exiftool -q -overwrite_original -Artist=me exif.jpg
)";
// Each with what a new packet is put in front of; "": the end.
const std::pair<const char*, std::string> kMedia[] = {
    {"ffmpeg.jpg", "\xFF\xFE"},  {"gst.jpg", "\xFF\xDB"}, {"progressive.jpg", "\xFF\xDB"},
    {"comment.JPG", "\xFF\xFE"}, {"icc.jpg", "\xFF\xE2"}, {"exif.jpg", "\xFF\xE1"},
    {"cjpeg.jpg", "\xFF\xDB"},   {"ffmpeg.mp4", ""},      {"gst.mp4", ""}};

void write_twice(const char* name, const std::string& follows) {
  SCOPED_TRACE(name);
  const orb_xmp_fields first = fields_with("first"), second = fields_with("a note\nin two lines");
  const bool is_jpeg = !follows.empty();
  const std::string header = is_jpeg ? "\xFF\xE1\x0A\x02" : "\0\0\x0A\x18"s + kXmpUuid;
  std::string file = content(name);
  const size_t place = is_jpeg ? file.find(follows) : file.size();
  EXPECT_EQ(orb_xmp_write(name, first), 0);
  file.insert(place, header + packet_of(first, 2560));
  EXPECT_TRUE(content(name) == file);
  const size_t packet = place + (is_jpeg ? 4 : 32), length = is_jpeg ? 2560 : 2552;
  EXPECT_EQ(orb_xmp_write(name, second), 0);
  file.replace(packet, length, packet_of(second, length));
  EXPECT_TRUE(content(name) == file);
  const orb_xmp_fields read = metadata_of(name);
  EXPECT_EQ(memcmp(&read, &second, sizeof read), 0);
}

// The frames of all files, and the packets of the videos' streams.
std::string pictures() {
  return shell(R"(sums() {
      inputs= maps= options=$1; shift; number=0
      for i; do inputs="$inputs -i $i"; maps="$maps -map $number:v"; number=$((number + 1)); done
      ffmpeg -v error $inputs $maps $options -f framemd5 -
    }
    sums "" *.jpg *.JPG *.mp4; sums "-c copy" *.mp4)");
}

void expect_failure(const std::string& name, const std::string& bytes) {
  EXPECT_EQ(orb_xmp_write(name.c_str(), fields_with("")), -1) << name;
  EXPECT_TRUE(content(name) == bytes) << name;
  EXPECT_FALSE(fs::is_regular_file(paths::kXmpTemporary)) << name;
}

TEST_F(xmp, the_files_of_several_writers_take_a_packet_that_others_read) {
  shell(kMakeMedia);
  const std::string before = pictures();
  std::string names, values;
  for (const auto& [name, follows] : kMedia) {
    write_twice(name, follows);
    names += name + std::string(" ");
    values += name +
              std::string(" MH 14 \"north\" & <co> J. Müller 2026-03-09 14-05-59 Upstream ORB Advanced ") +
              "SIM-0001 a note_in two lines 48.11735 -11.51667 12:35:19.00 UTC\n";
  }
  EXPECT_EQ(pictures(), before);
  EXPECT_EQ(
      shell("exiftool -q -n -p '$FileName $ProjectName $Composer ${ShotDate;tr/:/-/} $Scene $CameraModel "
            "$CameraLabel ${DMComment;tr/\n/_/} $XMP:GPSLatitude $XMP:GPSLongitude $XMP:GPSDateTime' " +
            names),
      values);
  EXPECT_EQ(shell("exiv2 -q -PXkv pr *.jpg *.JPG | grep -c 'xmpDM.comment  *a note$'"), "7\n");
}

const std::string kJpeg = "\xFF\xD8\xFF\xDB\0\4dq"s;

TEST_F(xmp, only_regular_pictures_and_videos_are_opened) {
  start_trace();
  replace_file("a.mov", kJpeg);
  fs::create_directory("folder.jpg");
  ASSERT_EQ(mkfifo("pipe.jpg", 0600), 0);
  for (const char* name : {"missing.jpg", "folder.jpg", "pipe.jpg", "missing.mp4", "a.mov", "jpg"}) {
    orb_xmp_fields read = fields_with("old");
    EXPECT_EQ(orb_xmp_read(name, &read), -1) << name;
    EXPECT_STREQ(read.comment, "");
    expect_failure(name, content(name));
  }
  const std::string traced = "read xmp md -1;write xmp md -1;", open = "jpgxmp scan open fail;";
  const std::string jpeg = open + "read xmp md -1;" + open + "write xmp md -1;";
  EXPECT_EQ(traces("RCDR"), jpeg + jpeg + jpeg + traced + traced + traced);
}

TEST_F(xmp, a_write_that_fails_leaves_the_file_as_it_was) {
  const std::string jpeg = kJpeg + std::string(200'000, 'x');
  replace_file("a.jpg", jpeg);
  fs::create_directory("temp");
  expect_failure("a.jpg", jpeg);
  fs::remove("temp");
  ASSERT_EQ(mount("tmpfs", paths::kUsbTakes, "tmpfs", 0, "size=300k"), 0);
  const std::string full = paths::kUsbTakes + "/a.jpg"s;
  replace_file(full, jpeg);
  expect_failure(full, jpeg);
  mount("tmpfs", paths::kUsbTakes, "tmpfs", MS_REMOUNT, "size=1000k");  // the copy would fit
  expect_failure(full, jpeg);
  umount(paths::kUsbTakes);

  replace_file("temp", "of a power cut");
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("", "another title")), 0);
  const std::string written = content("a.jpg");
  fs::rename(paths::kXmpTemplate, "/opt/nork/bin/away");
  expect_failure("a.jpg", written);
  replace_file("b.jpg", kJpeg), replace_file("a.mp4", "nothing");
  EXPECT_EQ(orb_xmp_write("b.jpg", fields_with("")) + orb_xmp_write("a.mp4", fields_with("")), 0);
  fs::rename("/opt/nork/bin/away", paths::kXmpTemplate);
  EXPECT_EQ(content("b.jpg").size(), kJpeg.size() + 2564);
}

// Its packet lies far behind all that an undo record holds.
const std::string kLong = "\xFF\xD8\xFF\xE0\xEA\x60" + std::string(59'998, 'x') + kJpeg.substr(2);

// `file` as a cut leaves it: of each sector that a write changes, the old content or the new.
std::string torn(std::string file, const std::string& now, unsigned pattern) {
  for (size_t at = 0; at < file.size(); at += 512)
    if ((pattern >> at / 512 % 6 & 1) != 0) file.replace(at, 512, now, at, 512);
  return file;
}

TEST_F(xmp, a_power_cut_leaves_the_old_packet_or_the_new_one) {
  signal(SIGXFSZ, SIG_IGN);
  replace_file("a.jpg", kLong);
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("old")), 0);
  const std::string old = content("a.jpg");
  const orb_xmp_fields fresh = fields_with("new", "MH 15 \"north\" & <co>");
  rlimit limits{};
  getrlimit(RLIMIT_FSIZE, &limits);
  for (const rlim_t limit : {2000U, 60'000U}) {  // no record, no packet (and none that can be put back)
    EXPECT_FALSE(fs::exists("xmp_undo"));
    const rlimit cut{limit, limits.rlim_max};
    setrlimit(RLIMIT_FSIZE, &cut);
    EXPECT_EQ(orb_xmp_write("a.jpg", fresh), -1);
    setrlimit(RLIMIT_FSIZE, &limits);
  }
  const std::string record = content("xmp_undo");
  EXPECT_EQ(orb_xmp_write("a.jpg", fresh), 0);
  const std::string now = content("a.jpg");
  const auto settled = [&](const std::string& file, const std::string& left) {
    replace_file("a.jpg", file), replace_file("xmp_undo", left);
    {
      const no_more_files starved;
      orb_xmp_end_interrupted(paths::kUsbTakes);  // cannot read the record, which waits
    }
    EXPECT_TRUE(fs::exists("xmp_undo"));
    orb_xmp_fields read;
    orb_xmp_read("a.jpg", &read);
    EXPECT_FALSE(fs::exists("xmp_undo"));
    return content("a.jpg");
  };
  for (unsigned pattern = 0; pattern < 64; ++pattern) {
    const std::string left = torn(old, now, pattern);
    EXPECT_TRUE(settled(left, record) == (left == now ? now : old)) << pattern;
  }
  for (size_t at = 0; at < record.size(); at += 512) {
    std::string part = record;
    EXPECT_TRUE(settled(old, part.substr(0, at)) == old);
    EXPECT_TRUE(settled(old, part.replace(at, 1, 1, static_cast<char>(~part[at]))) == old);
  }
  std::string changed = torn(old, now, 0b001000);
  changed[60'100] ^= 1;
  EXPECT_TRUE(settled(changed, record) == changed);  // by another program since

  replace_file("a.jpg", torn(old, now, 0b001000)), replace_file("xmp_undo", record);
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("of the mixture")), -1);
  EXPECT_TRUE(content("a.jpg") == old);
  replace_file("xmp_undo", record), fs::remove("a.jpg");
  orb_xmp_end_interrupted(paths::kUsbTakes);
  EXPECT_FALSE(fs::exists("xmp_undo"));
}

// The names of what is flushed, each with the note that "a.jpg" has then.
std::string flushes;
void note_flush(int fd) {
  const std::string file = content("a.jpg");
  const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(fd));
  const size_t note = file.find("<xmpDM:comment>");
  flushes += path.filename().string() + " " + (note == std::string::npos ? '0' : file[note + 43]) + ", ";
}

// Before the packet changes its record is on the disk; a renamed file is flushed under its new name, too.
TEST_F(xmp, what_a_power_cut_needs_is_flushed_in_order) {
  replace_file("a.jpg", kLong);
  on_flush = note_flush;
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("1")), 0);
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("2")), 0);
  on_flush = nullptr;
  EXPECT_EQ(flushes, "temp 0, a.jpg 1, ApiVideos 1, xmp_undo 1, ApiVideos 1, a.jpg 2, ");
}

TEST_F(xmp, one_file_is_written_at_a_time) {
  replace_file("a.jpg", kJpeg);
  std::atomic<bool> is_over = false;
  std::thread writer([&] {
    for (; !is_over; replace_file("b.jpg", kJpeg + std::string(1 << 20, 'b')))
      orb_xmp_write("b.jpg", fields_with("b"));
  });
  int result = 0;
  for (int i = 0; i < 1'000'000 && result == 0; ++i)
    result = orb_xmp_write("a.jpg", fields_with("a"), xmp_turn::skip);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("a"), xmp_turn::await), 0);
  is_over = true;
  writer.join();
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("a"), xmp_turn::skip), 0);
}

}  // namespace
