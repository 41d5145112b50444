// What the reader makes of damaged files: exactly what survives, and what the remark says.
#include <cmath>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "gridding/survey/georeference.h"
#include "gridding/survey/gsf_reader.h"
#include "gridding/survey/test_files.h"

namespace quarro::survey {
namespace {

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const LineError& error) {
    return error.what();
  }
  return "no error";
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class GsfDamage : public testing::Test {
 protected:
  WholeLine Read(const std::string& bytes) { return ReadWhole(scratch_.Write("line.gsf", bytes)); }
  // Of a file that gives nothing.
  std::string Refusal(const std::string& bytes) {
    const std::string path = scratch_.Write("line.gsf", bytes);
    return ErrorOf([&] { ReadWhole(path); });
  }
  // How many beams the georeferencer would give the grid.
  std::uint64_t Offered(const WholeLine& line) {
    BeamAccount account;
    Soundings soundings;
    georeferencer_.Place(line.chunk, soundings, account);
    EXPECT_EQ(line.account.read, account.flagged + account.Refused() + account.offered);
    EXPECT_EQ(soundings.size(), account.offered);
    return account.offered;
  }

  ScratchDirectory scratch_;
  Georeferencer georeferencer_{20, {}};
};

TEST_F(GsfDamage, MissingEmptyAndIrregularFilesAreNamed) {
  const std::string missing = scratch_.File("none.gsf");
  EXPECT_TRUE(Contains(ErrorOf([&] { OpenLine(missing); }), missing));
  EXPECT_TRUE(Contains(Refusal(""), "is empty"));
  EXPECT_TRUE(Contains(ErrorOf([&] { OpenLine(scratch_.File("")); }), "is a directory"));
  const std::string pipe = scratch_.File("pipe.gsf");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_TRUE(Contains(ErrorOf([&] { OpenLine(pipe); }), "is no regular file"));
}

TEST_F(GsfDamage, TextInPlaceOfGsfIsRefused) {
  EXPECT_TRUE(Contains(Refusal("easting northing depth\n1 2 3\n"), "is not a GSF file"));
  EXPECT_TRUE(Contains(Refusal("x"), "is not a GSF file"));
  EXPECT_TRUE(Contains(Refusal(GoodPing()), "is not a GSF file"));
}

TEST_F(GsfDamage, UnknownVersionsAreRefused) {
  for (const char* version : {"GSF-v01.02", "GSF-v04.00", "GSF-vab.cd", "GSF-v03", "PDF-v03.01"}) {
    EXPECT_TRUE(Contains(Refusal(Header(version) + GoodPing()), "version")) << version;
  }
}

TEST_F(GsfDamage, AHeaderAloneIsNoLine) {
  EXPECT_TRUE(Contains(Refusal(Header()), "holds no whole ping"));
  EXPECT_TRUE(Contains(Refusal(Header() + Record(6, "comment.")), "holds no whole ping"));
}

TEST_F(GsfDamage, TruncationAtAnyByteKeepsTheWholePingsBeforeIt) {
  const std::string start = Header() + GoodPing();
  const std::string whole = start + GoodPing();
  for (std::size_t size = 1; size < whole.size(); ++size) {
    const std::string bytes = whole.substr(0, size);
    if (size < start.size()) {
      EXPECT_NE(Refusal(bytes), "no error") << size;
      continue;
    }
    const WholeLine line = Read(bytes);
    EXPECT_EQ(line.account.pings, 1U) << size;
    EXPECT_FLOAT_EQ(line.chunk.depth_m.at(1), 56.78F) << size;
    EXPECT_EQ(line.remark.empty(), size == start.size()) << size;
    if (size > start.size()) {
      EXPECT_TRUE(Contains(line.remark, "at byte " + std::to_string(start.size()))) << line.remark;
    }
  }
}

TEST_F(GsfDamage, ASizeBeyondTheFileEndsTheLine) {
  const WholeLine line =
      Read(Header() + GoodPing() + Word32(0xFFFFFFF0) + Word32(2) + std::string(100, '\0'));
  EXPECT_EQ(line.account.pings, 1U);
  EXPECT_TRUE(Contains(line.remark, "4294967280 bytes runs past the end of the file"));
}

TEST_F(GsfDamage, ZerosInPlaceOfRecordsEndTheLine) {
  const WholeLine line = Read(Header() + GoodPing() + std::string(4096, '\0') + GoodPing());
  EXPECT_EQ(line.account.pings, 1U);
  EXPECT_TRUE(Contains(line.remark, "zeros"));
}

TEST_F(GsfDamage, AWrongChecksumLosesThatPingAndWhatOthersInheritFromIt) {
  const std::string data = PingHeader({}) + UsualScales() + TwoBeams();
  std::uint32_t sum = 0;
  for (const char c : data) sum += static_cast<unsigned char>(c);
  const auto with_checksum = [&](std::uint32_t checksum) {
    return Word32(static_cast<std::int64_t>(data.size())) + Word32(0x80000002) + Word32(checksum) +
           data;
  };
  EXPECT_EQ(Read(Header() + with_checksum(sum)).remark, "");
  const WholeLine line = Read(Header() + with_checksum(sum) + with_checksum(sum + 1) +
                              Record(2, PingHeader({}) + TwoBeams()) + GoodPing());
  EXPECT_EQ(line.account.pings, 3U);
  EXPECT_TRUE(Contains(line.remark, "checksum")) << line.remark;
  EXPECT_TRUE(Contains(line.remark, "(and 1 more)")) << line.remark;
  EXPECT_FALSE(line.chunk.pings.at(0).incomplete);
  EXPECT_TRUE(line.chunk.pings.at(1).incomplete);
  EXPECT_FALSE(line.chunk.pings.at(2).incomplete);
  EXPECT_EQ(Offered(line), 4U);
}

TEST_F(GsfDamage, PingsWithoutBeamsAreCounted) {
  const WholeLine line =
      Read(Header() + Record(2, PingHeader({.beams = 0}) + UsualScales()) + GoodPing());
  EXPECT_EQ(line.account.pings, 2U);
  EXPECT_EQ(line.account.read, 2U);
  EXPECT_EQ(line.chunk.pings.at(0).beam_count, 0U);
  EXPECT_EQ(line.remark, "");
  EXPECT_EQ(Offered(line), 2U);
}

TEST_F(GsfDamage, NegativeBeamCountsAndShortPingsAreLeftOut) {
  const WholeLine line = Read(Header() + Record(2, PingHeader({.beams = -5}) + UsualScales()) +
                              Record(2, std::string(40, '\0')) + Record(2, "") + GoodPing());
  EXPECT_EQ(line.account.pings, 1U);
  EXPECT_EQ(line.account.read, 2U);
  EXPECT_TRUE(Contains(line.remark, "-5 beams")) << line.remark;
  EXPECT_TRUE(Contains(line.remark, "(and 2 more)")) << line.remark;
}

TEST_F(GsfDamage, ManyBeamsWithoutTheirArraysAllocateNoMoreThanTheyCount) {
  const WholeLine line =
      Read(Header() + Record(2, PingHeader({.beams = 32767}) + UsualScales() + TwoBeams()));
  EXPECT_EQ(line.account.read, 32767U);
  EXPECT_EQ(Offered(line), 0U);
}

struct IncompleteCase {
  const char* name;
  std::string body;
  const char* remark;
};

TEST_F(GsfDamage, PingsThatDoNotTellWhereTheirBeamsAreGiveNoSounding) {
  const std::string scales = UsualScales();
  const std::string depth = Subrecord(1, Word16(1) + Word16(2));
  const std::string across = Subrecord(2, Word16(1) + Word16(2));
  const std::string along = Subrecord(3, Word16(1) + Word16(2));
  const std::string all = depth + across + along;
  const std::vector<IncompleteCase> cases = {
      {"no depth", scales + across + along, "lacks its depth array"},
      {"no across", scales + depth + along, "lacks its across-track array"},
      {"no along", scales + depth + across, "lacks its along-track array"},
      {"nothing", "", "lacks its depth array"},
      {"no scale factor", all, "no scale factor"},
      {"multiplier 0", Scales({{1, 0, 0}, {2, 10, 0}, {3, 10, 0}}) + all, "no scale factor"},
      {"scale of one array only", Scales({{1, 10, 0}}) + all, "across-track array has no scale"},
      {"array no multiple of N", scales + Subrecord(1, "abc") + across + along, "does not fit 2"},
      {"three bytes a beam", scales + Subrecord(1, "abcdef") + across + along, "does not fit 2"},
      {"flags of another number", scales + all + Subrecord(16, "abc"), "beam flags of 3 bytes"},
      {"array past the end", scales + across + along + Word32(1 << 24 | 400) + "ab", "runs past"},
      {"skipped past the end", scales + all + Word32(21 << 24 | 9) + "abcde", "runs past"},
      {"too many scale factors", Subrecord(100, Word32(9)) + all, "cannot hold what it counts"},
      {"negative scale factors", Subrecord(100, Word32(-1)) + all, "cannot hold what it counts"},
      {"huge scale factors", Subrecord(100, Word32(0x7FFFFFFF)) + all, "cannot hold"},
      {"no scale-factor count", Subrecord(100, "ab") + all, "cannot hold what it counts"},
  };
  for (const IncompleteCase& one : cases) {
    const WholeLine line = Read(Header() + Record(2, PingHeader({}) + one.body));
    EXPECT_EQ(line.account.pings, 1U) << one.name;
    EXPECT_EQ(line.account.read, 2U) << one.name;
    EXPECT_TRUE(line.chunk.pings.at(0).incomplete) << one.name;
    EXPECT_TRUE(std::isnan(line.chunk.depth_m.at(0))) << one.name;
    EXPECT_TRUE(Contains(line.remark, one.remark)) << one.name << ": " << line.remark;
    EXPECT_EQ(Offered(line), 0U) << one.name;
  }
}

TEST_F(GsfDamage, BadScaleFactorsAreNotReplacedByOlderOnes) {
  const WholeLine line = Read(Header() + GoodPing() +
                              Record(2, PingHeader({}) + Subrecord(100, Word32(9)) + TwoBeams()) +
                              Record(2, PingHeader({}) + TwoBeams()) + GoodPing());
  EXPECT_EQ(line.account.read, 8U);
  EXPECT_EQ(Offered(line), 4U);
}

TEST_F(GsfDamage, ASkippedSubrecordMayLackThePaddingItCounts) {
  const WholeLine line = Read(Header() + Record(2, PingHeader({}) + UsualScales() + TwoBeams() +
                                                       Word32(21 << 24 | 8) + "abcde"));
  EXPECT_EQ(line.remark, "");
  EXPECT_EQ(Offered(line), 2U);
}

TEST_F(GsfDamage, BadErrorArraysLeaveTheDepthsUsable) {
  const std::string scales =
      Scales({{1, 100, 0}, {2, 10, 0}, {3, 10, 0}, {19, 0, 0}, {20, 100, 0}});
  const WholeLine line =
      Read(Header() + Record(2, PingHeader({}) + scales + TwoBeams() +
                                    Subrecord(19, Word16(1) + Word16(1)) + Subrecord(20, "abc")));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_v_m.at(0)));
  EXPECT_TRUE(std::isnan(line.chunk.sigma_h_m.at(0)));
  EXPECT_FALSE(line.chunk.pings.at(0).incomplete);
  EXPECT_TRUE(Contains(line.remark,
                       "the vertical-error array has no scale factor other than 0: it is left out"))
      << line.remark;
  EXPECT_EQ(Offered(line), 2U);
}

struct BadErrorsCase {
  const char* name;
  std::string body;  // of the second of four pings, the others have good errors, none, and good
  const char* remark;
  bool vertical_left;  // to the ping itself and to the third, which has none of its own
  bool horizontal_left;
};

TEST_F(GsfDamage, ABadErrorArrayIsToldAndNoOlderOneTakesItsPlace) {
  const auto scales = [](std::int64_t vertical, std::int64_t horizontal) {
    return Scales({{1, 100, 0},
                   {2, 10, 0},
                   {3, 10, 0},
                   {11, 100, 0},
                   {12, 100, 0},
                   {13, 100, 0},
                   {19, vertical, 0},
                   {20, horizontal, 0}});
  };
  const std::string usual = scales(100, 100);
  const std::string two = Word16(490) + Word16(490);
  const std::string vertical = Subrecord(19, two);
  const std::string horizontal = Subrecord(20, two);
  const std::vector<BadErrorsCase> cases = {
      {"good", usual + vertical + horizontal, "", true, true},
      {"none", usual, "", true, true},
      {"vertical a byte short", usual + Subrecord(19, "abc") + horizontal,
       "the vertical-error array of 3 bytes does not fit 2 beams: it is left out", false, true},
      {"vertical of no bytes", usual + Subrecord(19, "") + horizontal,
       "the vertical-error array of 0 bytes does not fit 2 beams", false, true},
      {"vertical not scaled", scales(0, 100) + vertical + horizontal,
       "the vertical-error array has no scale factor other than 0", false, true},
      {"horizontal a byte short", usual + vertical + Subrecord(20, "abc"),
       "the horizontal-error array of 3 bytes does not fit 2 beams", true, false},
      {"horizontal not scaled", scales(100, 0) + vertical + horizontal,
       "the horizontal-error array has no scale factor other than 0", true, false},
      {"without scale factors", UsualScales() + vertical + horizontal,
       "the vertical-error array has no scale factor other than 0", false, false},
      {"old vertical in its place", usual + Subrecord(19, "abc") + Subrecord(11, two),
       "the vertical-error array of 3 bytes does not fit 2 beams", true, true},
      {"old vertical bad", usual + Subrecord(11, "abc"),
       "the depth-error array of 3 bytes does not fit 2 beams", false, true},
      {"old across bad", usual + Subrecord(12, "abc") + Subrecord(13, two),
       "the across-track-error array of 3 bytes does not fit 2 beams", true, false},
      {"old along bad", usual + Subrecord(12, two) + Subrecord(13, "abc"),
       "the along-track-error array of 3 bytes does not fit 2 beams", true, false},
      {"old along alone", usual + Subrecord(13, two), "", true, true},
  };
  const std::string good = Record(2, PingHeader({}) + usual + TwoBeams() + vertical + horizontal);
  for (const BadErrorsCase& one : cases) {
    const WholeLine line =
        Read(Header() + good + Record(2, PingHeader({}) + TwoBeams() + one.body) +
             Record(2, PingHeader({}) + usual + TwoBeams()) + good);
    EXPECT_EQ(line.remark.empty(), *one.remark == '\0') << one.name << ": " << line.remark;
    EXPECT_TRUE(Contains(line.remark, one.remark)) << one.name << ": " << line.remark;
    for (const std::size_t beam : {2U, 3U, 4U, 5U}) {
      EXPECT_EQ(std::isfinite(line.chunk.sigma_v_m.at(beam)), one.vertical_left) << one.name;
      EXPECT_EQ(std::isfinite(line.chunk.sigma_h_m.at(beam)), one.horizontal_left) << one.name;
    }
    for (const std::size_t beam : {0U, 1U, 6U, 7U}) {
      EXPECT_FLOAT_EQ(line.chunk.sigma_v_m.at(beam), 2.5F) << one.name;
      EXPECT_NEAR(line.chunk.sigma_h_m.at(beam), 2.0019F, 1e-4) << one.name;
    }
    EXPECT_EQ(Offered(line), 8U) << one.name;
  }
}

TEST_F(GsfDamage, ErrorsOfAPingWithoutPlacesAreThoseThatLaterPingsInherit) {
  const std::string scales = Scales({{1, 100, 0}, {2, 10, 0}, {3, 10, 0}, {19, 100, 0}});
  const auto sigma_after = [&](const std::string& body) {
    const WholeLine line = Read(
        Header() +
        Record(2, PingHeader({}) + scales + TwoBeams() + Subrecord(19, Word16(196) + Word16(196))) +
        Record(2, PingHeader({}) + body) + Record(2, PingHeader({}) + scales + TwoBeams()));
    EXPECT_TRUE(line.chunk.pings.at(1).incomplete);
    EXPECT_FALSE(line.chunk.pings.at(2).incomplete);
    return line.chunk.sigma_v_m.at(4);
  };
  EXPECT_FLOAT_EQ(sigma_after(scales), 1.0F);
  EXPECT_FLOAT_EQ(sigma_after(scales + Subrecord(19, Word16(392) + Word16(392))), 2.0F);
  EXPECT_TRUE(std::isnan(sigma_after(scales + Subrecord(19, "abc"))));
  // Whether it had any is not known.
  EXPECT_TRUE(std::isnan(sigma_after(Subrecord(100, Word32(9)) + TwoBeams())));
}

TEST_F(GsfDamage, PositionsOffTheGlobeGiveNoSounding) {
  const auto ping = [](const PingFields& fields) {
    return Record(2, PingHeader(fields) + UsualScales() + TwoBeams());
  };
  const WholeLine line = Read(Header() + ping({.longitude_deg = 181.0}) +
                              ping({.longitude_deg = -180.5}) + ping({.latitude_deg = 91.0}) +
                              ping({.latitude_deg = -90.1}) + ping({.heading_deg = 510.0}));
  BeamAccount account;
  Soundings soundings;
  Georeferencer(20, {}).Place(line.chunk, soundings, account);
  EXPECT_EQ(account.refused[static_cast<std::size_t>(Refusal::kPosition)], 10U);
  EXPECT_EQ(soundings.size(), 0U);
}

TEST_F(GsfDamage, AFileCutShortWhileItIsReadKeepsWhatCameBefore) {
  constexpr int kBeams = 30000;
  const std::string zeros(2 * kBeams, '\0');
  const std::string ping = Record(2, PingHeader({.beams = kBeams}) + UsualScales() +
                                         Subrecord(1, std::string(2 * kBeams, '\x11')) +
                                         Subrecord(2, zeros) + Subrecord(3, zeros));
  std::string bytes = Header();
  for (int i = 0; i < 12; ++i) bytes += ping;
  const std::string path = scratch_.Write("line.gsf", bytes);
  const auto reader = OpenLine(path);
  PingChunk chunk;
  BeamAccount account;
  ASSERT_TRUE(reader->Next(chunk, account));
  std::filesystem::resize_file(path, bytes.size() / 2);
  while (reader->Next(chunk, account)) continue;
  EXPECT_GE(account.pings, 5U);  // what the buffer held already may be more than half of the file
  EXPECT_LT(account.pings, 12U);
  EXPECT_EQ(account.read, account.pings * kBeams);
  EXPECT_TRUE(Contains(reader->Remark(), "shrank") || Contains(reader->Remark(), "ends within"))
      << reader->Remark();
}

TEST_F(GsfDamage, RandomDamageNeverCrashesAndEveryBeamIsAccountedFor) {
  const unsigned seed = 4711;
  std::mt19937 random(seed);
  const std::string good = Header() + GoodPing() + GoodPing() +
                           Record(2, PingHeader({}) + TwoBeams() + Subrecord(16, "ab")) +
                           Record(12, std::string(28, 'x')) + GoodPing();
  for (int round = 0; round < 3000; ++round) {
    std::string bytes = good;
    const unsigned flips = 1 + random() % 8;
    for (unsigned i = 0; i < flips; ++i) {
      bytes[random() % bytes.size()] = static_cast<char>(random());
    }
    bytes.resize(bytes.size() - random() % 8);
    const std::string path = scratch_.Write("line.gsf", bytes);
    try {
      Offered(ReadWhole(path));
    } catch (const LineError&) {
      continue;  // nothing was left of it
    }
    ASSERT_FALSE(HasFailure()) << "round " << round << " of seed " << seed;
  }
}

}  // namespace
}  // namespace quarro::survey
