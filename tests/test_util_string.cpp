// Tests of the text, path and file-system helpers: trimming asymmetries, splitting return
// values, numeric-string shortening, backup naming and recycling, and the FNW hash.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "util.h"

namespace {

// A scratch directory removed with its contents at the end of a test.
class ScratchDir {
 public:
  ScratchDir() {
    char tmpl[] = "/tmp/kavri_util_XXXXXX";
    path_ = mkdtemp(tmpl);
  }
  ~ScratchDir() { std::filesystem::remove_all(path_); }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void write_file(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

} // namespace

TEST(UtilTrim, StringAndCharFamiliesDiffer) {
  std::string s = "\t a b \r\n";
  EXPECT_EQ(trim(s), "a b");
  s = "   ";
  EXPECT_EQ(trim(s), "");
  s = "\nab";
  EXPECT_EQ(triml(s), "\nab"); // the left set has no line feed
  s = "  'P 21/c' \r\n";
  EXPECT_EQ(sg_trim(s), "P21/c");
  s = "\"abc\"";
  EXPECT_EQ(sg_triml(s), "abc\"");
  s = "\"a\tb c\"";
  EXPECT_EQ(sg_trim(s), "a\tbc");

  char blanks[] = "   ";
  c_trim(blanks);
  EXPECT_STREQ(blanks, " ");
  char x_lf[] = "x\n";
  c_trim(x_lf);
  EXPECT_STREQ(x_lf, "x");
  char lone_lf[] = "\n";
  c_trimr(lone_lf);
  EXPECT_STREQ(lone_lf, "\n");
  char left[] = "\t  ab \t";
  c_triml(left);
  EXPECT_STREQ(left, "ab \t");
  char tabs[] = "\t\t";
  c_triml(tabs);
  EXPECT_STREQ(tabs, "\t");
  char empty[] = "";
  c_trim(empty);
  EXPECT_STREQ(empty, "");
  c_trim(nullptr);
}

TEST(UtilCompare, CaseInsensitiveTests) {
  EXPECT_TRUE(iequals("Abc", "aBC"));
  EXPECT_TRUE(iequals("", ""));
  EXPECT_FALSE(iequals("abc", "ab"));
  EXPECT_TRUE(strcaseequal("abc", "ab", 2));
  EXPECT_FALSE(strcaseequal("ab", "abc", 3));
  EXPECT_TRUE(strcaseequal("x", "y", 0));

  EXPECT_EQ(strcasestr_n("CRYSTAL file", "crystal", 7), 1); // prefix, not substring
  EXPECT_EQ(strcasestr_n("a crystal", "crystal", 7), 0);
  EXPECT_EQ(strcasestr_n("ab", "AB", 10), 1); // both end together
  EXPECT_EQ(strcasestr_n("ab", "abc", 10), 0);
  EXPECT_EQ(strcasestr_n("x", "y", 0), 1);

  EXPECT_TRUE(isAlphabetical("Cl"));
  EXPECT_FALSE(isAlphabetical("C1"));
  EXPECT_FALSE(isAlphabetical(""));
}

TEST(UtilCompare, CiCharTraits) {
  EXPECT_TRUE(ci_string("Hello") == ci_string("hELLO"));
  EXPECT_TRUE(ci_char_traits::lt('\xC3', 'a')); // signed bytes: above 127 sorts first
  EXPECT_EQ(ci_char_traits::compare("abC", "ABd", 3), -1);
  EXPECT_EQ(ci_char_traits::compare("ab", "abc", 3), -1);
  EXPECT_EQ(ci_char_traits::compare("abc", "ab", 3), 1);
  EXPECT_EQ(ci_char_traits::compare("ab", "AB", 3), 0);
  const char* text = "abcd";
  EXPECT_EQ(ci_char_traits::find(text, 4, 'C'), text + 2);
  EXPECT_EQ(ci_char_traits::find(text, 4, 'z'), text + 4);
  EXPECT_EQ(ci_char_traits::find(text, 0, 'a'), text);
}

TEST(UtilEdit, ReplacementsAndPaths) {
  std::string s = "aaaa";
  findAndReplaceAll(s, "aa", "a");
  EXPECT_EQ(s, "aa");
  EXPECT_EQ(RemoveWhiteSpaceUnderscore(" a_b\tc "), "ab\tc");

  std::string slashes = "a/b\\c";
  ReplaceSlashWithUnderscore(slashes);
  EXPECT_EQ(slashes, "a_b_c");
  char drive[] = "D:\\x";
  ReplaceBackSlashWithSlash(drive);
  FixMsys2PathDrive(drive);
  EXPECT_STREQ(drive, "/D/x");
  std::string rooted = "/home/run";
  FixMsys2PathDrive(rooted);
  EXPECT_EQ(rooted, "/home/run");
}

TEST(UtilEdit, MorphNumericString) {
  char a[] = "1.500";
  char* last = morphNumericString(a, 2);
  EXPECT_STREQ(a, "1.5");
  EXPECT_EQ(last, a + 2);
  char b[] = "2.000";
  EXPECT_EQ(morphNumericString(b, 2), b);
  EXPECT_STREQ(b, "2");
  char c[] = "3.14159";
  morphNumericString(c, 2);
  EXPECT_STREQ(c, "3.14");
  char e[] = "100.5";
  morphNumericString(e, -1); // negative n also strips zeros of the integer part
  EXPECT_STREQ(e, "1");
  char f[] = "42";
  EXPECT_EQ(morphNumericString(f, 2), nullptr);
  EXPECT_STREQ(f, "42");
  char g[] = "00.5";
  morphNumericString(g, -1);
  EXPECT_STREQ(g, "");
}

TEST(UtilSplit, TokenizeAndSplitters) {
  std::vector<std::string> out{"stale"};
  std::string line = "  a , , b ";
  EXPECT_EQ(tokenize(out, line, " ,"), 1);
  EXPECT_EQ(out, (std::vector<std::string>{"a", "b"}));
  std::string empty;
  EXPECT_EQ(tokenize(out, empty, " "), 0);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(tokenize(out, "", " "), 1);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(tokenize(out, static_cast<const char*>(nullptr), " "), 0);

  split_to_words(" C1  0.5,0.25 ", " ,", &out);
  EXPECT_EQ(out, (std::vector<std::string>{"C1", "0.5", "0.25"}));
  EXPECT_EQ(split_string_dl("a;;b;", ';'), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(split_string(" x\ty\n z "), (std::vector<std::string>{"x", "y", "z"}));
}

TEST(UtilFormat, LongResultsAndDates) {
  const std::string long_text(3000, 'q');
  EXPECT_EQ(format_string("%s-%d", long_text.c_str(), 7), long_text + "-7");
  EXPECT_EQ(formatString("%s|%05.1f", long_text.c_str(), 2.25), long_text + "|002.2");
  EXPECT_EQ(formatString("%d", 12), "12");

  char buf[64];
  get_now_date_time(buf);
  EXPECT_TRUE(::testing::internal::RE::FullMatch(
      buf, "(Sun|Mon|Tue|Wed|Thu|Fri|Sat) [A-Z][a-z][a-z] [0-9]+ [0-9][0-9]:[0-9][0-9]:[0-9][0-9] "
           "[0-9][0-9][0-9][0-9]"))
      << buf;
}

TEST(UtilPath, NamesAndParents) {
  EXPECT_EQ(base_filename("dir\\sub/file.cif"), "file.cif");
  EXPECT_EQ(base_filename("file.cif"), "file.cif");
  EXPECT_EQ(remove_filename_extension("file.tar.gz"), "file.tar");
  EXPECT_EQ(remove_filename_extension("./file"), "");
  EXPECT_EQ(remove_filename_extension("run.old/out"), "run");
  EXPECT_EQ(getParentPathAndBasename("a/b\\c.mol"), std::make_pair(std::string("a/b"), std::string("c.mol")));
  EXPECT_EQ(getParentPathAndBasename("c.mol"), std::make_pair(std::string(), std::string("c.mol")));
}

TEST(UtilFiles, ExistenceDirectoriesAndLines) {
  ScratchDir dir;
  const std::string f = dir.file("a.dat");
  write_file(f, "a\r\nb\r\n");
  EXPECT_EQ(file_exists(f.c_str()), 1);
  EXPECT_EQ(_file_exist(""), 0);
  EXPECT_EQ(count_lines(f.c_str()), 4); // CR and LF both count

  EXPECT_EQ(dir_exists(dir.path().c_str()), 1);
  EXPECT_EQ(dir_exists(f.c_str()), 0);
  EXPECT_EQ(dir_exists(dir.file("none").c_str()), 0);
  EXPECT_EQ(dir_exists((f + "/x").c_str()), 0); // ENOTDIR
  const std::string sub = dir.file("sub");
  create_directory(sub.c_str());
  EXPECT_EQ(dir_exists(sub.c_str()), 1);
  create_directory(dir.file("no/parents").c_str());
  EXPECT_EQ(dir_exists(dir.file("no").c_str()), 0);

  write_file(dir.file("b.dat"), "");
  EXPECT_EQ(globFileVector(dir.file("*.dat")),
            (std::vector<std::string>{dir.file("a.dat"), dir.file("b.dat")}));
  EXPECT_TRUE(globFileVector(dir.file("*.none")).empty());
}

TEST(UtilFiles, CountLinesReportsOnStdout) {
  // The message goes to standard output; the death-test child's stdout is checked by
  // redirecting it to stderr first.
  EXPECT_EXIT(
      {
        dup2(2, 1);
        count_lines("/nonexistent/kavri.inp");
      },
      ::testing::ExitedWithCode(255), "ERROR: Failed to open input file /nonexistent/kavri.inp\n");
}

TEST(UtilFiles, Strhed) {
  char line[] = " \t_cell_length_a   10.5 \r\n";
  char* rest = line;
  EXPECT_STREQ(strhed(&rest), "_cell_length_a");
  EXPECT_STREQ(rest, "10.5");
  char blank[] = "  \n ";
  rest = blank;
  EXPECT_STREQ(strhed(&rest), "");
  EXPECT_STREQ(rest, "");
}

TEST(UtilBackup, NumberedNamesRecycleTheFirst) {
  ScratchDir dir;
  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof(cwd)), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  write_file("out.1", "1");
  EXPECT_EQ(_backup_filenname("out"), "./out.2");
  for (int k = 2; k <= 9; ++k) write_file("out." + std::to_string(k), "k");
  EXPECT_EQ(_backup_filenname("out"), "./out.1");
  EXPECT_FALSE(fileExist("out.1"));
  EXPECT_FALSE(fileExist("out.10"));
  ASSERT_EQ(chdir(cwd), 0);

  const std::string nested = dir.file("EH.dat");
  write_file(nested, "energies");
  testing::internal::CaptureStderr();
  make_file_backup(nested);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Backed up " + nested + " to " + nested + ".1\n");
  EXPECT_EQ(read_file(nested + ".1"), "energies");
  EXPECT_FALSE(fileExist(nested.c_str()));

  write_file(nested, "new");
  backup_file(nested.c_str());
  EXPECT_EQ(read_file(nested + "#"), "new");
}

TEST(UtilHash, FnwHashIn64Bits) {
  EXPECT_EQ(FNW_hash(""), 2166136261UL);
  EXPECT_EQ(FNW_hash("a"), 36342608889142654UL);
  EXPECT_EQ(FNW_hash("\xff"), 18410401464820409056UL); // byte sign-extended before the xor
  EXPECT_EQ(FNW_hash("Cell\xe9"), 1479768185396913994UL);
}
