// Making grids, setting them aside, and who may open them.
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gridding/store/grid_store.h"
#include "gridding/store/store_test_support.h"

namespace quarro::store {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class GridFolderTest : public testing::Test {
 protected:
  std::string Create(const std::string& name = "g") {
    std::string set_aside_as = "from before";
    GridStore::Create(directory_.Path(), name, kParameters, set_aside_as);
    return set_aside_as;
  }
  std::vector<std::string> Entries() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory_.Path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  FreshDirectory directory_;
};

TEST_F(GridFolderTest, AnOldGridIsSetAsideAndNotLost) {
  EXPECT_EQ(Create(), "");
  {
    const auto store = GridStore::Open(directory_.Path(), "g");
    AddLine(*store, 1);
  }
  const std::string first = Create();
  const std::string second = Create();
  EXPECT_THAT(first, MatchesRegex("g\\.aside-[0-9]{8}T[0-9]{6}Z(-[0-9]+)?"));
  EXPECT_THAT(second, StartsWith("g.aside-"));
  EXPECT_NE(first, second);
  const auto old = GridStore::Open(directory_.Path(), first);
  EXPECT_EQ(old->TakeSnapshot()->GetTotals().lines, 1U);
  EXPECT_EQ(old->Name(), first);
  const auto current = GridStore::Open(directory_.Path(), "g");
  EXPECT_EQ(current->TakeSnapshot()->GetTotals().lines, 0U);
  EXPECT_EQ(Entries().size(), 3U);
}

TEST_F(GridFolderTest, AnotherFileOfThatNameIsSetAsideToo) {
  std::ofstream(directory_.Path() / "g") << "notes";
  const std::string aside = Create();
  std::string text;
  std::ifstream(directory_.Path() / aside) >> text;
  EXPECT_EQ(text, "notes");
}

TEST_F(GridFolderTest, AGridInUseIsNotSetAside) {
  const auto store = CreateGrid(directory_.Path());
  AddLine(*store, 1);
  EXPECT_THAT(ErrorOf([&] { Create(); }), HasSubstr("grid \"g\" is in use by process "));
  EXPECT_EQ(Entries(), std::vector<std::string>{"g"});
  EXPECT_EQ(AddLine(*store, 2), 2U);
}

TEST_F(GridFolderTest, NamesThatAreNoPlainNamesAreRefused) {
  for (const std::string& name :
       {std::string(), std::string("a/b"), std::string("/"), std::string("."), std::string(".."),
        std::string(".hidden"), std::string("a\nb"), std::string("a\0b", 3), std::string("a\x7f"),
        std::string("\t")}) {
    EXPECT_THAT(ErrorOf([&] { Create(name); }), HasSubstr("name of a grid")) << name;
    EXPECT_THAT(ErrorOf([&] { GridStore::Open(directory_.Path(), name); }),
                HasSubstr("name of a grid"))
        << name;
  }
  EXPECT_TRUE(Entries().empty());
}

TEST_F(GridFolderTest, NamesWithBlanksQuotesAndLettersOfAllKindsAreFine) {
  for (const std::string name :
       {"a b", "it's \"g\"?", "file:g?mode=memory", "Nord-Süd %20", "-g"}) {
    EXPECT_EQ(Create(name), "");
    EXPECT_EQ(GridStore::Open(directory_.Path(), name)->Name(), name);
    EXPECT_TRUE(fs::exists(directory_.Path() / name / "grid.sqlite")) << name;
  }
}

TEST_F(GridFolderTest, ANameTooLongForTheFileSystemIsAnError) {
  EXPECT_THAT(ErrorOf([&] { Create(std::string(300, 'x')); }), HasSubstr("File name too long"));
}

TEST_F(GridFolderTest, OpeningWhatIsNotThereNamesTheGridAndTheDirectory) {
  EXPECT_EQ(ErrorOf([&] { GridStore::Open(directory_.Path(), "nix"); }),
            "there is no grid \"nix\" in " + directory_.Path().string());
  fs::create_directory(directory_.Path() / "empty");
  EXPECT_EQ(ErrorOf([&] { GridStore::Open(directory_.Path(), "empty"); }),
            "there is no grid \"empty\" in " + directory_.Path().string());
}

TEST_F(GridFolderTest, AMissingWorkingDirectoryIsNamedWithTheReason) {
  const fs::path missing = directory_.Path() / "not" / "there";
  std::string aside;
  const auto says = AllOf(HasSubstr(missing.string()), HasSubstr("No such file or directory"));
  EXPECT_THAT(ErrorOf([&] { GridStore::Create(missing, "g", kParameters, aside); }), says);
  EXPECT_THAT(ErrorOf([&] { GridStore::Open(missing, "g"); }), says);
  const fs::path file = directory_.Path() / "file";
  std::ofstream(file) << "x";
  EXPECT_THAT(ErrorOf([&] { GridStore::Create(file, "g", kParameters, aside); }),
              AllOf(HasSubstr(file.string()), HasSubstr("Not a directory")));
}

TEST_F(GridFolderTest, AWorkingDirectoryThatCannotBeWrittenIsNamedWithTheReason) {
  if (::geteuid() == 0) GTEST_SKIP() << "permissions do not keep root out";
  fs::permissions(directory_.Path(), fs::perms::owner_read | fs::perms::owner_exec);
  const std::string error = ErrorOf([&] { Create(); });
  fs::permissions(directory_.Path(), fs::perms::owner_all);
  EXPECT_THAT(error, AllOf(HasSubstr(directory_.Path().string()), HasSubstr("Permission denied")));
}

TEST_F(GridFolderTest, AnInterruptedCreationIsNoGridAndInNobodysWay) {
  fs::create_directory(directory_.Path() / ".g.new-123");
  std::ofstream(directory_.Path() / ".g.new-123" / "grid.sqlite") << "half";
  EXPECT_EQ(Create(), "");
  EXPECT_EQ(GridStore::Open(directory_.Path(), "g")->TakeSnapshot()->GetTotals().lines, 0U);
}

TEST_F(GridFolderTest, ARelativeWorkingDirectoryMayChangeMeaningWhileTheGridIsOpen) {
  const fs::path before = fs::current_path();
  fs::create_directory(directory_.Path() / "work");
  fs::current_path(directory_.Path());
  const auto store = CreateGrid("work");
  fs::current_path(before);
  AddLine(*store, 1);
  EXPECT_EQ(store->TakeSnapshot()->GetTotals().lines, 1U);
  EXPECT_TRUE(fs::exists(directory_.Path() / "work" / "g" / "grid.sqlite"));
}

TEST_F(GridFolderTest, ASecondStoreInThisProcessIsRefused) {
  auto store = CreateGrid(directory_.Path());
  EXPECT_THAT(
      ErrorOf([&] { GridStore::Open(directory_.Path(), "g"); }),
      HasSubstr("grid \"g\" is in use by process " + std::to_string(::getpid()) + " on host "));
  EXPECT_EQ(AddLine(*store, 1), 1U);
  store.reset();
  EXPECT_EQ(GridStore::Open(directory_.Path(), "g")->TakeSnapshot()->GetTotals().lines, 1U);
}

// A child that opens the grid, adds line 1, and then holds it until it is killed.
class HoldingProcess {
 public:
  explicit HoldingProcess(const fs::path& directory) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) return;
    process_ = ::fork();
    if (process_ == 0) Hold(directory, pipe[1]);
    ::close(pipe[1]);
    char ready = 0;
    holds_ = ::read(pipe[0], &ready, 1) == 1;
    ::close(pipe[0]);
  }
  HoldingProcess(const HoldingProcess&) = delete;
  HoldingProcess& operator=(const HoldingProcess&) = delete;
  ~HoldingProcess() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  pid_t Id() const { return process_; }
  bool Holds() const { return holds_; }

 private:
  [[noreturn]] static void Hold(const fs::path& directory, int ready) {
    try {
      const auto store = GridStore::Open(directory, "g");
      AddLine(*store, 1);
      if (::write(ready, "x", 1) == 1) {
        for (;;) ::pause();
      }
    } catch (const std::exception&) {
      ::_exit(1);
    }
    ::_exit(2);
  }

  pid_t process_ = -1;
  bool holds_ = false;
};

TEST_F(GridFolderTest, AnotherProcessIsRefusedByTheHoldersNumberUntilThatDies) {
  Create();
  {
    const HoldingProcess holder(directory_.Path());
    ASSERT_TRUE(holder.Holds());
    const std::string says =
        "grid \"g\" is in use by process " + std::to_string(holder.Id()) + " on host ";
    EXPECT_THAT(ErrorOf([&] { GridStore::Open(directory_.Path(), "g"); }), StartsWith(says));
    EXPECT_THAT(ErrorOf([&] { Create(); }), StartsWith(says));
  }
  // The dead process left its lock file behind, and the line that it had added.
  EXPECT_GT(fs::file_size(directory_.Path() / "g" / "lock"), 0U);
  EXPECT_EQ(GridStore::Open(directory_.Path(), "g")->TakeSnapshot()->GetTotals().lines, 1U);
}

}  // namespace
}  // namespace quarro::store
