// What is a parameter file, where a wrong one is wrong, and the conversion of values.
#include "support/mparams.h"

#include <limits>
#include <locale>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/test_directory.h"

namespace quarro {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

class ParameterFile : public testing::Test {
 protected:
  MParams Read(const std::string& content) {
    return MParams(directory_.Write("parameters.xml", content), true);
  }

  // The refusal of a file of this content, after the name of the file and a colon.
  std::string Refusal(const std::string& content) {
    const std::string path = directory_.Write("parameters.xml", content);
    try {
      MParams(path, true);
    } catch (const ExMPEXmlFileNotParsable& error) {
      const std::string text = error.what();
      if (text.starts_with(path + ":")) return text.substr(path.size() + 1);
      return "does not begin with the name of the file: " + text;
    }
    return "accepted";
  }

  std::string RefusalOfPath(const std::string& path, bool must_exist) {
    try {
      MParams(path, must_exist);
    } catch (const ExMPEXmlFileNotParsable& error) {
      return std::string("not parsable: ") + error.what();
    } catch (const ExTarn& error) {
      return error.what();
    }
    return "accepted";
  }

  TestDirectory directory_;
};

TEST_F(ParameterFile, GivesTheValueOfEachKeyInItsSection) {
  const MParams params = Read(R"(<?xml version="1.0" encoding="utf-8"?>
<!-- a comment -->
<parameters>
  <section name="ClientServer">
    <parameter key="BAGMetadataTemplate">examples/north.xml</parameter>
  </section>
  <section name="Engine">
    <parameter key="WorkingDirectory">/data/grids</parameter>
    <!-- another -->
    <parameter key="Threads">4</parameter>
  </section>
  <section name="Empty"/>
</parameters>
)");
  EXPECT_EQ(params.Lookup("ClientServer", "BAGMetadataTemplate"), "examples/north.xml");
  EXPECT_EQ(params.Lookup("Engine", "WorkingDirectory"), "/data/grids");
  EXPECT_EQ(params.Lookup("Engine", "Threads"), "4");
  EXPECT_THAT(params.Keys(),
              ElementsAre(Pair("ClientServer", "BAGMetadataTemplate"), Pair("Engine", "Threads"),
                          Pair("Engine", "WorkingDirectory")));
}

TEST_F(ParameterFile, AKeyThatItDoesNotHoldIsEmpty) {
  const MParams params = Read(
      R"(<parameters><section name="A"><parameter key="k">v</parameter></section></parameters>)");
  EXPECT_EQ(params.Lookup("A", "K"), "");
  EXPECT_EQ(params.Lookup("B", "k"), "");
  EXPECT_EQ(params.Lookup("", ""), "");
}

TEST_F(ParameterFile, WithoutSectionsHoldsNothing) {
  EXPECT_THAT(Read("<parameters/>").Keys(), ElementsAre());
}

TEST_F(ParameterFile, ValuesAreTakenWithoutTheWhiteSpaceAroundThem) {
  const MParams params = Read(
      "<parameters><section name=\"A\"><parameter key=\"k\">\r\n\t two  words \n </parameter>"
      "<parameter key=\"blank\"> \n </parameter></section></parameters>");
  EXPECT_EQ(params.Lookup("A", "k"), "two  words");
  EXPECT_EQ(params.Lookup("A", "blank"), "");
}

TEST_F(ParameterFile, ValuesMayHoldEscapesCommentsAndCharacterData) {
  const MParams params = Read(
      "<parameters><section name=\"A\"><parameter key=\"k\">a &lt;&amp;<!-- c --><![CDATA[<b>]]>"
      " \xC3\xA9</parameter></section></parameters>");
  EXPECT_EQ(params.Lookup("A", "k"), "a <&<b> \xC3\xA9");
}

TEST_F(ParameterFile, SectionsOfOneNameAreOne) {
  const MParams params = Read(R"(<parameters>
<section name="A"><parameter key="k">1</parameter></section>
<section name="A"><parameter key="l">2</parameter></section>
</parameters>)");
  EXPECT_EQ(params.Lookup("A", "k"), "1");
  EXPECT_EQ(params.Lookup("A", "l"), "2");
}

TEST_F(ParameterFile, MissingIsAnErrorOnlyWhereItMustExist) {
  const std::string path = directory_.Path("absent.xml");
  EXPECT_EQ(RefusalOfPath(path, true), "parameter file \"" + path + "\" does not exist.");
  EXPECT_THAT(MParams(path, false).Keys(), ElementsAre());
}

TEST_F(ParameterFile, DirectoryIsRefusedAsOne) {
  const std::string path = directory_.Path();
  EXPECT_EQ(RefusalOfPath(path, true),
            "parameter file \"" + path + "\" is a directory; name a file.");
  EXPECT_EQ(RefusalOfPath(path, false),
            "parameter file \"" + path + "\" is a directory; name a file.");
}

TEST_F(ParameterFile, UnreadableIsRefusedWithTheReason) {
  if (::geteuid() == 0) GTEST_SKIP() << "the superuser reads every file";
  const std::string path = directory_.Write("closed.xml", "<parameters/>");
  std::filesystem::permissions(path, std::filesystem::perms::none);
  EXPECT_EQ(RefusalOfPath(path, true),
            "parameter file \"" + path + "\" cannot be read: Permission denied.");
}

TEST_F(ParameterFile, NameThatCannotBeLookedUpIsRefusedWithTheReason) {
  const std::string path = directory_.Path(std::string(300, 'n'));
  EXPECT_EQ(RefusalOfPath(path, true),
            "parameter file \"" + path + "\" cannot be read: File name too long.");
}

TEST_F(ParameterFile, DeviceThatNeverEndsIsRefused) {
  EXPECT_EQ(RefusalOfPath("/dev/zero", true),
            "parameter file \"/dev/zero\" is larger than 16 MiB; name a parameter file.");
}

TEST_F(ParameterFile, DeviceThatFailsToReadIsRefusedWithTheReason) {
  // Reading the memory of this process at address 0 fails.
  EXPECT_EQ(RefusalOfPath("/proc/self/mem", true),
            "parameter file \"/proc/self/mem\" cannot be read: Input/output error.");
}

TEST_F(ParameterFile, MalformedXmlIsRefusedWithLineAndColumn) {
  EXPECT_THAT(Refusal("<parameters>\n  <section name=\"A\">\n  </oops>\n</parameters>\n"),
              testing::StartsWith("3:5: "));
  EXPECT_THAT(Refusal("<parameters>"), testing::StartsWith("1:"));
  EXPECT_THAT(Refusal("<parameters>\n\n<section name=A/></parameters>"), testing::StartsWith("3:"));
}

TEST_F(ParameterFile, EmptyOrBlankIsRefused) {
  EXPECT_EQ(Refusal(""), "1:1: there is no <parameters> element");
  EXPECT_EQ(Refusal("\n \n"), "3:1: there is no <parameters> element");
}

TEST_F(ParameterFile, AnotherDocumentElementIsRefused) {
  EXPECT_EQ(Refusal("<!-- c -->\n <gmi:metadata/>"),
            "2:2: the document element is <gmi:metadata>, it must be <parameters>");
}

TEST_F(ParameterFile, ASecondDocumentElementOrTextBesideItIsRefused) {
  EXPECT_EQ(Refusal("<parameters/>\n<parameters/>"), "2:1: a second document element <parameters>");
  EXPECT_EQ(Refusal("<parameters/>\n  more"), "2:3: text outside of <parameters>");
}

TEST_F(ParameterFile, UnknownElementsAreRefused) {
  EXPECT_EQ(Refusal("<parameters>\n  <group/>\n</parameters>"),
            "2:3: unexpected element <group> in <parameters>, which holds only <section> elements");
  EXPECT_EQ(Refusal("<parameters><section name=\"A\">\n<param key=\"k\"/></section></parameters>"),
            "2:1: unexpected element <param> in <section>, which holds only <parameter> elements");
  EXPECT_EQ(Refusal("<parameters><section name=\"A\"><parameter key=\"k\">x\n <b/></parameter>"
                    "</section></parameters>"),
            "2:2: unexpected element <b> in <parameter>, which holds only text");
}

TEST_F(ParameterFile, TextBetweenElementsIsRefused) {
  EXPECT_EQ(Refusal("<parameters>\n\n  stray <section name=\"A\"/></parameters>"),
            "3:3: unexpected text in <parameters>, which holds only <section> elements");
  EXPECT_EQ(Refusal("<parameters><section name=\"A\">\n&lt;</section></parameters>"),
            "2:1: unexpected text in <section>, which holds only <parameter> elements");
}

TEST_F(ParameterFile, UnknownAttributesAreRefused) {
  EXPECT_EQ(Refusal("<parameters version=\"2\"/>"),
            "1:1: <parameters> has an unknown attribute \"version\"");
  EXPECT_EQ(Refusal("<parameters>\n<section name=\"A\" on=\"1\"/></parameters>"),
            "2:1: <section> has an unknown attribute \"on\"");
  EXPECT_EQ(Refusal("<parameters><section name=\"A\">\n<parameter key=\"k\" value=\"1\"/>"
                    "</section></parameters>"),
            "2:1: <parameter> has an unknown attribute \"value\"");
}

TEST_F(ParameterFile, NamelessSectionsAndKeylessParametersAreRefused) {
  EXPECT_EQ(Refusal("<parameters>\n<section/></parameters>"),
            "2:1: <section> needs an attribute \"name\" that is not empty");
  EXPECT_EQ(Refusal("<parameters>\n<section name=\"\"/></parameters>"),
            "2:1: <section> needs an attribute \"name\" that is not empty");
  EXPECT_EQ(Refusal("<parameters><section name=\"A\">\n<parameter>1</parameter></section>"
                    "</parameters>"),
            "2:1: <parameter> needs an attribute \"key\" that is not empty");
  EXPECT_EQ(Refusal("<parameters>\n<section name=\"A\" name=\"B\"/></parameters>"),
            "2:1: <section> has attribute \"name\" twice");
}

TEST_F(ParameterFile, AKeyGivenTwiceInASectionIsRefusedWhereItRecurs) {
  EXPECT_EQ(Refusal("<parameters><section name=\"A\"><parameter key=\"k\">1</parameter>\n"
                    "    <parameter key=\"k\">1</parameter></section></parameters>"),
            "2:5: key \"k\" is given twice in section \"A\"; keep one");
  EXPECT_THAT(
      Refusal("<parameters><section name=\"A\"><parameter key=\"k\">1</parameter>\n"
              "</section><section name=\"A\">\n<parameter key=\"k\"/></section></parameters>"),
      testing::StartsWith("3:1: key \"k\" is given twice"));
}

TEST_F(ParameterFile, ColumnsCountCharactersAndNoByteOrderMark) {
  EXPECT_EQ(Refusal("\xEF\xBB\xBF<oops/>"),
            "1:1: the document element is <oops>, it must be <parameters>");
  EXPECT_EQ(Refusal("<parameters><!-- \xC3\xA9\xC3\xA9 --><oops/></parameters>"),
            "1:24: unexpected element <oops> in <parameters>, which holds only <section> elements");
}

TEST_F(ParameterFile, PlaceOfAnErrorCountsEscapesAndLineEndsAsTheyStandInTheFile) {
  EXPECT_EQ(Refusal("<parameters>\r\n<section name=\"A\">\r\n<parameter key=\"k\">&lt;&amp;\r\n"
                    "</parameter><oops/></section></parameters>"),
            "4:13: unexpected element <oops> in <section>, which holds only <parameter> elements");
}

TEST_F(ParameterFile, OtherEncodingsAreRefused) {
  EXPECT_THAT(Refusal("<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n<parameters/>"),
              HasSubstr("the encoding is \"ISO-8859-1\", it must be \"UTF-8\""));
  EXPECT_EQ(Refusal(std::string("<\0p\0/\0>\0", 8)), "1:2: the file is not text in UTF-8");
  EXPECT_EQ(Refusal(std::string("<parameters/>\n\0<", 16)), "2:1: the file is not text in UTF-8");
}

TEST(MParamsValues, SetValuesAreFoundAndReplaceOthers) {
  MParams params;
  EXPECT_EQ(params.Lookup("A", "k"), "");
  params.Set("A", "k", "1");
  params.Set("A", "k", " 2 ");
  EXPECT_EQ(params.Lookup("A", "k"), "2");
}

// The refusal of a value by `lookup`.
template <typename Lookup>
std::string RefusalOf(const std::string& value, const Lookup& lookup) {
  MParams params;
  params.Set("Engine", "Key", value);
  try {
    lookup(params);
  } catch (const ExSGClientBase& error) {
    return error.who();
  }
  return "accepted";
}

double Number(const MParams& params) {
  return LookupNumber(params, "Engine", "Key", 7.5, 0.1, 1000);
}
long Integer(const MParams& params) { return LookupInteger(params, "Engine", "Key", 8, -5, 1024); }
bool Flag(const MParams& params) { return LookupFlag(params, "Engine", "Key", true); }

TEST(LookupNumber, ConvertsTheWholeText) {
  MParams params;
  EXPECT_EQ(Number(params), 7.5);
  params.Set("Engine", "Key", "");
  EXPECT_EQ(Number(params), 7.5);
  params.Set("Engine", "Key", "0.25");
  EXPECT_EQ(Number(params), 0.25);
  params.Set("Engine", "Key", "1e2");
  EXPECT_EQ(Number(params), 100.0);
  params.Set("Engine", "Key", "0.1");
  EXPECT_EQ(Number(params), 0.1);
  params.Set("Engine", "Key", "1000");
  EXPECT_EQ(Number(params), 1000.0);
}

TEST(LookupNumber, WhatIsNoNumberInTheRangeIsRefused) {
  for (const std::string value :
       {"abc", "1.5m", "1,5", "1 2", "0.0999", "1000.5", "-1", "nan", "inf", "1e400", "0x10"}) {
    EXPECT_EQ(RefusalOf(value, Number),
              "parameter Engine/Key is \"" + value + "\"; it must be a number from 0.1 to 1000.");
  }
}

TEST(LookupNumber, InfinityIsRefusedEvenInAnOpenRange) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(RefusalOf("inf",
                      [&](const MParams& params) {
                        LookupNumber(params, "Engine", "Key", 1, 0, infinity);
                      }),
            "parameter Engine/Key is \"inf\"; it must be a number from 0 to inf.");
}

TEST(LookupNumber, DoesNotDependOnTheGlobalLocale) {
  class CommaDecimals : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
  };
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new CommaDecimals));
  MParams params;
  params.Set("Engine", "Key", "2.5");
  EXPECT_EQ(Number(params), 2.5);
  EXPECT_NE(RefusalOf("2,5", Number), "accepted");
  std::locale::global(before);
}

TEST(LookupInteger, ConvertsTheWholeText) {
  MParams params;
  EXPECT_EQ(Integer(params), 8);
  params.Set("Engine", "Key", "-5");
  EXPECT_EQ(Integer(params), -5);
  params.Set("Engine", "Key", "1024");
  EXPECT_EQ(Integer(params), 1024);
}

TEST(LookupInteger, WhatIsNoWholeNumberInTheRangeIsRefused) {
  for (const std::string value :
       {"abc", "12x", "1.0", "1e2", "0x10", "-6", "1025", "99999999999999999999"}) {
    EXPECT_EQ(RefusalOf(value, Integer), "parameter Engine/Key is \"" + value +
                                             "\"; it must be a whole number from -5 to 1024.");
  }
}

TEST(LookupFlag, KnowsFourWordsEachWay) {
  MParams params;
  EXPECT_TRUE(LookupFlag(params, "Engine", "Key", true));
  EXPECT_FALSE(LookupFlag(params, "Engine", "Key", false));
  for (const char* value : {"true", "1", "yes", "on"}) {
    params.Set("Engine", "Key", value);
    EXPECT_TRUE(LookupFlag(params, "Engine", "Key", false)) << value;
  }
  for (const char* value : {"false", "0", "no", "off"}) {
    params.Set("Engine", "Key", value);
    EXPECT_FALSE(LookupFlag(params, "Engine", "Key", true)) << value;
  }
}

TEST(LookupFlag, AnyOtherWordIsRefused) {
  for (const std::string value : {"maybe", "2", "TRUE", "yes please"}) {
    EXPECT_EQ(RefusalOf(value, Flag),
              "parameter Engine/Key is \"" + value +
                  "\"; it must be true, 1, yes or on, or false, 0, no or off.");
  }
}

}  // namespace
}  // namespace quarro
