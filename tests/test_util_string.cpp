// Tests of the text, path and file-system helpers: trimming asymmetries, splitting return
// values, numeric-string shortening, backup naming and recycling, and the FNW hash.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "util.h"

using Strings = std::vector<std::string>;

// A scratch directory removed with its contents at the end of a test.
struct ScratchDir {
  char tmpl[32] = "/tmp/kavri_util_XXXXXX";
  std::string path = mkdtemp(tmpl);
  ~ScratchDir() { std::filesystem::remove_all(path); }
  std::string file(const std::string& name) const { return path + "/" + name; }
};

static void write_file(const std::string& path, const char* text) { std::ofstream(path) << text; }

// Applies an in-place C-string edit to a copy of `s`.
static std::string c_apply(void (*edit)(char*), std::string s) { edit(s.data()); return s.c_str(); }

TEST(UtilString, TrimmingAndCaseInsensitiveComparison) {
  std::string s = "\t a b \r\n", lf = "\nab", sg = "  'P 21/c' \r\n", q = "\"abc\"";
  EXPECT_EQ(trim(s), "a b");
  EXPECT_EQ(triml(lf), "\nab"); // the left set has no line feed
  EXPECT_EQ(sg_trim(sg), "P21/c"); // quotes and inner blanks go
  EXPECT_EQ(sg_triml(q), "abc\"");
  EXPECT_EQ(c_apply(c_trim, "   "), " "); // the first character is never removed
  EXPECT_EQ(c_apply(c_trimr, "\n"), "\n");
  EXPECT_EQ(c_apply(c_triml, "\t\t"), "\t");
  c_trim(nullptr);

  EXPECT_TRUE(iequals("Abc", "aBC"));
  EXPECT_TRUE(strcaseequal("abc", "ab", 2));
  EXPECT_EQ(strcasestr_n("CRYSTAL file", "crystal", 7), 1); // prefix, not substring
  EXPECT_EQ(strcasestr_n("a crystal", "crystal", 7), 0);
  EXPECT_EQ(strcasestr_n("ab", "AB", 10), 1); // both end together
  EXPECT_EQ(strcasestr_n("ab", "abc", 10), 0);
  EXPECT_EQ(strcasestr_n("x", "y", 0), 1);
  EXPECT_TRUE(ci_string("Hello") == ci_string("hELLO"));
  EXPECT_TRUE(ci_char_traits::lt('\xC3', 'a')); // signed bytes: above 127 sorts first
  EXPECT_EQ(ci_char_traits::compare("ab", "abc", 3), -1);
  const char* text = "abcd";
  EXPECT_EQ(ci_char_traits::find(text, 4, 'C'), text + 2);
  EXPECT_EQ(ci_char_traits::find(text, 4, 'z'), text + 4);
}

TEST(UtilString, EditsAndMorphNumericString) {
  std::string s = "aaaa";
  findAndReplaceAll(s, "aa", "a"); // inserted text is not searched again
  EXPECT_EQ(s, "aa");
  EXPECT_EQ(RemoveWhiteSpaceUnderscore(" a_b\tc "), "ab\tc");
  EXPECT_EQ(c_apply(FixMsys2PathDrive, c_apply(ReplaceBackSlashWithSlash, "D:\\x")), "/D/x");

  // {input, n, result, offset of the returned pointer (-1: null)}
  const struct { const char* in; int n; const char* out; int last; } cases[] = {
      {"1.500", 2, "1.5", 2}, {"2.000", 2, "2", 0}, {"3.14159", 2, "3.14", 3},
      {"100.5", -1, "1", 0},  {"42", 2, "42", -1},  {"00.5", -1, "", 0}};
  for (const auto& c : cases) {
    std::string buf = c.in;
    char* last = morphNumericString(buf.data(), c.n);
    EXPECT_STREQ(buf.c_str(), c.out) << c.in;
    EXPECT_EQ(last, c.last < 0 ? nullptr : buf.data() + c.last) << c.in;
  }
}

TEST(UtilString, TokenizeSplitAndFormat) {
  Strings out{"stale"};
  std::string line = "  a , , b ", empty;
  EXPECT_EQ(tokenize(out, line, " ,"), 1);
  EXPECT_EQ(out, (Strings{"a", "b"}));
  EXPECT_EQ(tokenize(out, empty, " "), 0);
  EXPECT_EQ(tokenize(out, "", " "), 1); // the C-string overload reports success
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(tokenize(out, static_cast<const char*>(nullptr), " "), 0);
  split_to_words(" C1  0.5,0.25 ", " ,", &out);
  EXPECT_EQ(out, (Strings{"C1", "0.5", "0.25"}));
  EXPECT_EQ(split_string_dl("a;;b;", ';'), (Strings{"a", "b"}));
  EXPECT_EQ(split_string(" x\ty\n z "), (Strings{"x", "y", "z"}));

  const std::string long_text(3000, 'q');
  EXPECT_EQ(format_string("%s-%d", long_text.c_str(), 7), long_text + "-7");
  EXPECT_EQ(formatString("%s|%05.1f", long_text.c_str(), 2.25), long_text + "|002.2");
}

TEST(UtilString, PathsLineHeadsAndHash) {
  EXPECT_EQ(base_filename("dir\\sub/file.cif"), "file.cif");
  EXPECT_EQ(remove_filename_extension("file.tar.gz"), "file.tar");
  EXPECT_EQ(remove_filename_extension("run.old/out"), "run"); // the whole path is searched
  EXPECT_EQ(getParentPathAndBasename("a/b\\c.mol"),
            (std::pair<std::string, std::string>{"a/b", "c.mol"}));
  char line[] = " \t_cell_length_a   10.5 \r\n";
  char* rest = line;
  EXPECT_STREQ(strhed(&rest), "_cell_length_a");
  EXPECT_STREQ(rest, "10.5");

  EXPECT_EQ(FNW_hash(""), 2166136261UL);
  EXPECT_EQ(FNW_hash("a"), 36342608889142654UL);
  EXPECT_EQ(FNW_hash("\xff"), 18410401464820409056UL); // byte sign-extended before the xor
  EXPECT_EQ(FNW_hash("Cell\xe9"), 1479768185396913994UL);
}

TEST(UtilFiles, LinesDirectoriesGlobAndBackups) {
  ScratchDir dir;
  const std::string f = dir.file("a.dat");
  write_file(f, "a\r\nb\r\n");
  EXPECT_EQ(count_lines(f.c_str()), 4); // CR and LF both count
  EXPECT_EQ(dir_exists(dir.path.c_str()), 1);
  EXPECT_EQ(dir_exists((f + "/x").c_str()), 0); // ENOTDIR
  create_directory(dir.file("no/parents").c_str());
  EXPECT_EQ(dir_exists(dir.file("no").c_str()), 0);
  write_file(dir.file("b.dat"), "");
  EXPECT_EQ(globFileVector(dir.file("*.dat")), (Strings{f, dir.file("b.dat")}));
  // The child's stderr is closed, so the message matched must come from stdout.
  EXPECT_EXIT((dup2(2, 1), close(2), count_lines("/no/such.inp")), ::testing::ExitedWithCode(255),
              "^ERROR: Failed to open input file /no/such.inp\n$");

  EXPECT_EQ(_backup_filenname("kavri_no_such_file"), "./kavri_no_such_file.1");
  const std::string out = dir.file("out");
  write_file(out + ".1", "1");
  EXPECT_EQ(_backup_filenname(out), out + ".2");
  for (int k = 2; k <= 9; ++k) write_file(out + "." + std::to_string(k), "k");
  EXPECT_EQ(_backup_filenname(out), out + ".1"); // after nine, ".1" is removed and reused
  EXPECT_FALSE(fileExist((out + ".1").c_str()));

  testing::internal::CaptureStderr();
  make_file_backup(f);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Backed up " + f + " to " + f + ".1\n");
  std::stringstream copy;
  copy << std::ifstream(f + ".1").rdbuf();
  EXPECT_EQ(copy.str(), "a\r\nb\r\n");
  EXPECT_FALSE(fileExist(f.c_str()));
}
