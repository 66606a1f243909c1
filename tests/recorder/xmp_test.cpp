// XMP metadata: packets as bytes, pictures and videos of several writers, and other programs' readers.
#include "recorder/xmp.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>

#include "app/trace_reader.h"
#include "base/child_process.h"
#include "base/file.h"
#include "base/text.h"
#include "recorder/media_scan.h"
#include "recorder/xmp_packet.h"

namespace fs = std::filesystem;

namespace {

using namespace std::string_literals;  // NOLINT(google-build-using-namespace)

const std::string kSignature = "http://ns.adobe.com/xap/1.0/\0"s;
const std::string kTrailer = "<?xpacket end=\"w\"?>\r\n \r\n \r\n";
const std::string kXmpUuid = "uuid\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC";

std::string content(const std::string& path) { return read_file(path.c_str(), 4 << 20).value_or("nothing"); }

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
  xmp() { fs::create_directories(paths::kUsbTakes), fs::current_path(paths::kUsbTakes); }
  ~xmp() override { fs::current_path("/tmp"), fs::remove_all(paths::kUsbTakes); }
};

// --- packets ---

TEST_F(xmp, a_packet_is_made_of_its_template_line_by_line) {
  const std::string start = kSignature + "<a>\n", padding = "<!-- XML whitespace as padding -->\n";
  const std::string lines = "<a>\n<xmpDM:scene>no quotes\n<xmpDM:shotDate>=\"old\"/ \"b\"\n" +
                            std::string(100, 'l') + "\n<xmpDM:comment><xmpDM:projectName>\"\"\n";
  const std::string made = start + "<xmpDM:shotDate>=\"2026-03-09 14-05-59\"/ \"b\"\n" +
                           std::string(80, 'l') + "<xmpDM:comment><xmpDM:projectName>\"title\"\n";
  const std::string rest = std::string(78, ' ') + "\r\n" + std::string(18, ' ') + "\r\n" + kTrailer;
  const struct {
    std::string xmp_template, packet;
    int result;
  } kTemplates[] = {
      {lines + padding + "ignored", made + rest, 0},         {lines, made + std::string(100, ' '), -1},
      {"", kSignature + std::string(31, ' '), -1},           {"<a>\n" + padding, start + "\n" + kTrailer, 0},
      {"<a>\n" + padding, start + kTrailer.substr(0, 7), 0}, {padding, kSignature.substr(0, 10), 0}};
  for (const auto& row : kTemplates) {
    std::string packet(row.packet.size(), 'x');
    EXPECT_EQ(fill_xmp_packet(row.xmp_template, fields_with("note", "title"), packet), row.result);
    EXPECT_EQ(packet, row.packet);
  }
}

// What is written comes back whole, or cut at a character; the packet is whole however long the texts are.
TEST_F(xmp, texts_come_back_and_always_leave_room_for_the_end) {
  const std::string quotes(512, '"');
  const std::pair<std::string, size_t> kNotes[] = {{"", 0},
                                                   {"a \"b\" & <c> 'd' &amp; &quot; é\n\tf\r", 40},
                                                   {std::string(512, 'n'), 512},
                                                   {quotes, 160},
                                                   {"é" + quotes, 161},
                                                   {std::string(159, '"') + "néééé", 164}};
  for (const auto& [note, kept] : kNotes) {
    orb_xmp_fields read;
    ASSERT_EQ(parse_xmp_packet(packet_of(fields_with(note), 2560), &read), 0);
    EXPECT_STREQ(read.gps_timestamp, "12:35:19.00 UTC");
    EXPECT_EQ(read.comment, note.substr(0, kept));
  }
  orb_xmp_fields read, full = fields_with(quotes, quotes);
  copy_text(full.composer, sizeof full.composer, quotes);
  copy_text(full.scene, sizeof full.scene, quotes);
  for (const size_t size : {1100U, 2560U, 60'000U}) packet_of(full, size);
  ASSERT_EQ(parse_xmp_packet(packet_of(fields_with("no XML: \uFFFE\uFFFF"), 2560), &read), 0);
  EXPECT_STREQ(read.comment, "no XML: ??");
  EXPECT_EQ(parse_xmp_packet(packet_of(fields_with("bad \xFF\x01 end"), 2560), &read), 0);
  EXPECT_STREQ(read.comment, "bad ?? end");
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
      {title, "-1 |||t"},
  };
  for (const auto& [packet, expected] : kPackets) {
    orb_xmp_fields read = fields_with("old");
    const std::string found = std::to_string(parse_xmp_packet(packet, &read)) + " " + read.comment;
    EXPECT_EQ(
        found + read.gps_latitude + "|" + read.shot_date + "|" + read.shot_time + "|" + read.project_name,
        expected)
        << packet;
  }
}

// --- places ---

xmp_place place_in(const char* name, int fd, size_t size) {
  EXPECT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
  return find_media_format(name)->scan(fd, static_cast<int64_t>(size));
}

TEST_F(xmp, damaged_and_hostile_files_are_looked_through_to_their_end_at_most) {
  const std::string ours = "\xFF\xE1\0\x22"s + kSignature + "abc", dqt = "\xFF\xDB\0\4dq"s;
  const std::string exif = "\xFF\xE1\0\4ex"s, soi = "\xFF\xD8",
                    box = "\0\0\0\x24"s + kXmpUuid + "12345678abcd";
  const std::string moov = "\0\0\0\x20moov"s + std::string(24, 'm');
  const struct {
    const char* name;
    std::string bytes;
    int64_t packet, length, insertion;
  } kFiles[] = {
      {".JpG", soi + "\xFF", 0, 0, -1},
      {".jpg", soi + dqt + ours + ours, 12, 32, -1},
      {".jpg", soi + dqt + exif + exif + dqt, 0, 0, 14},
      {".jpg", soi + "\xFF\xE0\0\4ap\xFF\xE2\0\4ic"s + dqt, 0, 0, 8},
      {".jpg", soi + "\xFF\xDD\0\4\xFF\xDBqq\xFF\xFE\0\4co"s, 0, 0, 6},  // not skipped by its length
      {".jpg", soi + "\xFF\xE0\0\x0A\xFF\xDB\0\4dqxx"s + dqt, 0, 0, 14},
      {".jpg", soi + "\xFF\xFF\xFF" + exif, 0, 0, 5},
      {".jpg", soi + "\xFF\xDA\0\2"s + dqt, 0, 0, -1},
      {".jpg", soi + "\xFF\xC4\0\0\xFF\xC4\0\1"s + dqt, 0, 0, 10},
      {".jpg", soi + ours.substr(0, 30), 0, 0, 2},
      {".jpg", soi + "\xFF\xE1\0\x1E"s + kSignature, 0, 0, 2},  // the signature is longer than the segment
      {".mp4", moov + box, 64, 4, -1},
      {".mp4", moov.substr(0, 31), 0, 0, -1},
      {".mp4", moov + "\0\0\0\0mdat"s + moov + box, 0, 0, 32},
      {".mp4", "\0\0\0\1mdat\0\0\0\0\0\0\0\x20"s + std::string(16, 'x') + moov, 0, 0, 64},
      {".mp4", "\0\0\0\1mdat\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s + moov + box, 0, 0, -1},
      {".mp4", "\0\0\0\x20"s + kXmpUuid + "12345678" + moov, 0, 0, 64},  // an empty packet
      {".mp4", moov + "\0\0\0\x25"s + box.substr(4), 0, 0, 32},
      {".mp4", "\0\0\0\1"s + box.substr(4) + moov, 0, 0, -1},
  };
  for (const auto& file : kFiles) {
    const unique_fd fd(memfd_create("media", MFD_CLOEXEC));
    EXPECT_TRUE(write_all(fd.get(), file.bytes));
    const xmp_place place = place_in(file.name, fd.get(), file.bytes.size());
    EXPECT_EQ(std::tie(place.packet, place.length, place.insertion),
              std::tie(file.packet, file.length, file.insertion))
        << &file - kFiles;
  }
  const unique_fd endless(memfd_create("media", MFD_CLOEXEC));
  EXPECT_EQ(place_in(".jpg", endless.get(), size_t{1} << 42).insertion, -1);
}

// --- files ---

constexpr char kMakeMedia[] = R"(
  picture="ffmpeg -v error -f lavfi -i testsrc=s=160x120:d=1"
  $picture -frames:v 1 ffmpeg.jpg
  $picture ffmpeg.mp4
  gst-launch-1.0 -q videotestsrc num-buffers=1 ! jpegenc ! filesink location=gst.jpg
  gst-launch-1.0 -q videotestsrc num-buffers=2 ! x264enc ! mp4mux ! filesink location=gst.mp4
  /usr/bin/convert -size 90x60 plasma: -interlace Plane progressive.jpg
  /usr/bin/convert -size 90x60 plasma: -set comment words comment.JPG
  { head -c 20 gst.jpg; printf '\377\342\0\022ICC_PROFILE\0\001\001ic'; tail -c +21 gst.jpg; } >icc.jpg
  cp ffmpeg.jpg exif.jpg; exiftool -q -overwrite_original -Artist=me exif.jpg
)";
const struct media {
  const char* name;
  std::string follows;  // what a new packet is put in front of; "": the end
} kMedia[] = {{"ffmpeg.jpg", "\xFF\xFE"}, {"gst.jpg", "\xFF\xDB"},     {"progressive.jpg", "\xFF\xDB"},
              {"exif.jpg", "\xFF\xE1"},   {"comment.JPG", "\xFF\xFE"}, {"icc.jpg", "\xFF\xE2"},
              {"ffmpeg.mp4", ""},         {"large.mp4", ""},           {"gst.mp4", ""}};

// The 64-bit box of ffmpeg's larger files: it takes the place of the empty "free" and of the usual one.
void make_large() {
  std::string video = content("ffmpeg.mp4");
  uint32_t size = 0;
  memcpy(&size, &video[40], 4);
  size = htobe32(be32toh(size) + 8);
  video.replace(32, 16, "\0\0\0\1mdat\0\0\0\0"s + std::string(reinterpret_cast<char*>(&size), 4));
  ASSERT_TRUE(replace_file("large.mp4", video));
}

void write_twice(const media& m) {
  SCOPED_TRACE(m.name);
  const orb_xmp_fields first = fields_with("first"), second = fields_with("a note\nin two lines");
  const bool is_jpeg = !m.follows.empty();
  const std::string header = is_jpeg ? "\xFF\xE1\x0A\x02" : "\0\0\x0A\x18"s + kXmpUuid;
  std::string file = content(m.name);
  const size_t place = is_jpeg ? file.find(m.follows) : file.size();
  EXPECT_EQ(orb_xmp_write(m.name, first), 0);
  file.insert(place, header + packet_of(first, 2560));
  EXPECT_TRUE(content(m.name) == file);
  const size_t packet = place + (is_jpeg ? 4 : 32), length = is_jpeg ? 2560 : 2552;
  EXPECT_EQ(orb_xmp_write(m.name, second), 0);
  file.replace(packet, length, packet_of(second, length));
  EXPECT_TRUE(content(m.name) == file);
  orb_xmp_fields read;
  EXPECT_EQ(orb_xmp_read(m.name, &read), 0);
  EXPECT_EQ(memcmp(&read, &second, sizeof read), 0);

  const unique_fd fd(memfd_create("media", MFD_CLOEXEC));
  ASSERT_TRUE(write_all(fd.get(), file));
  for (size_t size = file.size(); size-- > 0;) {
    const xmp_place cut = place_in(m.name, fd.get(), size);
    ASSERT_EQ(cut.length, size < packet + length ? 0 : static_cast<int64_t>(length)) << size;
    ASSERT_LE(cut.insertion, static_cast<int64_t>(size));
  }
}

TEST_F(xmp, the_files_of_several_writers_take_a_packet_that_others_read) {
  const std::string pictures = "for i in *.jpg *.JPG *.mp4; do ffmpeg -v error -i $i -f md5 -; done";
  shell(kMakeMedia);
  make_large();
  const std::string before = shell(pictures);
  for (const media& m : kMedia) write_twice(m);
  EXPECT_EQ(shell(pictures), before);

  std::string all_values;
  const std::string values =
      "MH 14 \"north\" & <co>\nJ. Müller\n2026-03-09 14-05-59\nUpstream\nORB Advanced\n"
      "SIM-0001\na note\nin two lines\n48.11735\n-11.51667\n12:35:19.00 UTC\n";
  for (const media& m : kMedia) {
    all_values += values;
    if (m.follows.empty()) continue;
    EXPECT_EQ(shell("exiv2 -q -PXv pr "s + m.name), values);
  }
  EXPECT_EQ(shell("exiftool -q -n -p '$ProjectName\n$Composer\n${ShotDate;tr/:/-/}\n$Scene\n"
                  "$CameraModel\n$CameraLabel\n$DMComment\n$XMP:GPSLatitude\n$XMP:GPSLongitude\n"
                  "$XMP:GPSDateTime' *.jpg *.JPG *.mp4 2>&1"),
            all_values);
}

void expect_failure(const std::string& name, const std::string& bytes) {
  EXPECT_EQ(orb_xmp_write(name.c_str(), fields_with("")), -1) << name;
  EXPECT_TRUE(content(name) == bytes) << name;
  EXPECT_FALSE(fs::is_regular_file(paths::kXmpTemporary)) << name;
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
  umount(paths::kUsbTakes);

  replace_file("temp", "of a power cut");
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("", "another title")), 0);
  const std::string written = content("a.jpg");
  signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  for (const rlim_t limit : {6U, 7U, 2000U}) {  // of the file: none or some bytes of the packet are written
    const rlimit cut{limit, old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &cut);
    expect_failure("a.jpg", written);
    setrlimit(RLIMIT_FSIZE, &old);
  }
}

TEST_F(xmp, a_write_succeeds_without_a_template_and_without_a_place) {
  fs::rename(paths::kXmpTemplate, "/opt/nork/bin/away");
  replace_file("a.jpg", kJpeg);
  replace_file("a.mp4", "nothing");
  EXPECT_EQ(orb_xmp_write("a.jpg", fields_with("")), 0);
  EXPECT_EQ(orb_xmp_write("a.mp4", fields_with("")), 0);
  fs::rename("/opt/nork/bin/away", paths::kXmpTemplate);
  EXPECT_EQ(content("a.jpg").size(), kJpeg.size() + 2564);
  EXPECT_EQ(content("a.mp4"), "nothing");
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
