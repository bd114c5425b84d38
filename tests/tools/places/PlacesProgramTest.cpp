#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class PlacesProgram : public testing::Test {
 protected:
  PlacesProgram() {
    const std::string rest(18, '\t');
    write("countries", "DE" + rest + "\n");
    write("regions", "DE.16\tBerlin\tBerlin\t2950157\n");
    write("cities",
          "2950159\tBerlin\tBerlin\t\t52.52437\t13."
          "41053\tP\tPPLC\tDE\t\t16\t00\t11000\t11000000\t3426354\t74\t43\t"
          "Europe/Berlin\t2012-09-19\n");
    write("changes", "# none\n");
  }

  std::string path(const std::string &name) const { return directory_.path() + "/" + name; }
  void write(const std::string &name, const std::string &text) const { std::ofstream(path(name)) << text; }
  std::string read(const std::string &name) const {
    std::ostringstream text;
    text << std::ifstream(path(name)).rdbuf();
    return text.str();
  }

  /// Runs the program; its exit code. What it has complained about is in `errors_`.
  std::optional<int> run() {
    ChildProcess program({KX_PLACES_PROGRAM, path("cities"), path("regions"), path("countries"),
                          path("changes"), path("table")});
    const auto code = program.exitCode();
    errors_ = program.errors();
    return code;
  }

  const TemporaryDirectory directory_;
  std::string errors_;
};

TEST_F(PlacesProgram, MakesATable) {
  EXPECT_EQ(run(), 0) << errors_;
  EXPECT_THAT(read("table"), StartsWith("KXPLACES"));
  EXPECT_FALSE(std::filesystem::exists(path("table.new")));
}

TEST_F(PlacesProgram, MakesTheSameTableOfTheSameData) {
  EXPECT_EQ(run(), 0) << errors_;
  const std::string first = read("table");
  EXPECT_EQ(run(), 0) << errors_;
  EXPECT_EQ(read("table"), first);
}

TEST_F(PlacesProgram, LeavesTheOldTableWhenTheDataAreMalformed) {
  write("table", "old");
  write("cities", "2950159\tBerlin\n");
  EXPECT_EQ(run(), 1);
  EXPECT_THAT(errors_, HasSubstr("cities:1: there are 2 fields, not 19"));
  EXPECT_EQ(read("table"), "old");
}

TEST_F(PlacesProgram, SaysWhichFileItCannotRead) {
  std::filesystem::remove(path("regions"));
  EXPECT_EQ(run(), 1);
  EXPECT_THAT(errors_, HasSubstr(path("regions") + ": No such file or directory"));
}

TEST_F(PlacesProgram, ExplainsItselfWithoutArguments) {
  ChildProcess program({KX_PLACES_PROGRAM});
  EXPECT_EQ(program.exitCode(), 2);
  EXPECT_THAT(program.errors(), HasSubstr("usage: kx-places"));
}

}  // namespace
}  // namespace kx
