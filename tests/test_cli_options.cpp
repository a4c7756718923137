// The option table of a tool command drives its parser and its help text.
#include <gtest/gtest.h>

#include "cli_options.h"

namespace {

const CliCommand kCmd{"kavri_demo", "demonstrates the option table", "[options] [file]",
                      {{"-cutoff", 1, "R", "closest-contact cut-off (A)"},
                       {"-vectors", 9, "AX AY AZ BX BY BZ CX CY CZ", "cell vectors"},
                       {"-mol", kRestOfValues, "FILE...", "MOL files"},
                       {"-write", 1, "FILE", "structure file", true},
                       {"-json", 0, "", "JSON output"}}};

bool parse(std::vector<const char*> argv, CliArgs& out, std::string& error) {
  argv.insert(argv.begin(), "kavri_demo");
  return parse_cli(kCmd, static_cast<int>(argv.size()), argv.data(), out, error);
}

TEST(CliOptions, ParsesCountsRestListsRepeatsAndPositionals) {
  CliArgs a;
  std::string err;
  ASSERT_TRUE(parse({"x.cif", "-mol", "a.mol", "b.mol", "-cutoff", "-4.5", "-write", "m.xyz",
                     "-write", "m.pdb", "-json"},
                    a, err))
      << err;
  EXPECT_EQ(a.positional, std::vector<std::string>{"x.cif"});
  EXPECT_EQ(a.last("-mol"), (std::vector<std::string>{"a.mol", "b.mol"}));
  EXPECT_EQ(a.value("-cutoff"), "-4.5");  // a negative number is a value, not an option
  ASSERT_EQ(a.given.at("-write").size(), 2u);
  EXPECT_TRUE(a.has("-json"));
  EXPECT_EQ(a.value("-vectors", "none"), "none");

  CliArgs b;  // the flags every command knows
  ASSERT_TRUE(parse({"--manpage", "--version", "-h"}, b, err)) << err;
  EXPECT_TRUE(b.has("--manpage") && b.has("--version") && b.has("-h"));
}

TEST(CliOptions, RefusesUnknownMissingAndRepeatedOptions) {
  for (auto argv : std::vector<std::vector<const char*>>{
           {"-cutof", "4"}, {"-cutoff"}, {"-vectors", "1", "2"}, {"-mol"}, {"-json", "-json"}}) {
    CliArgs a;
    std::string err;
    EXPECT_FALSE(parse(argv, a, err)) << argv[0];
    EXPECT_FALSE(err.empty());
  }
}

TEST(CliOptions, HelpAndManPageListEveryOption) {
  const std::string usage = cli_usage(kCmd), man = cli_manpage(kCmd, "1.0");
  for (const CliOption& o : kCmd.options) {
    EXPECT_NE(usage.find(o.name), std::string::npos) << o.name;
    EXPECT_NE(usage.find(o.help), std::string::npos) << o.name;
  }
  size_t entries = 0;
  for (size_t at = man.find(".TP\n"); at != std::string::npos; at = man.find(".TP\n", at + 1))
    ++entries;
  EXPECT_EQ(entries, kCmd.options.size() + 2);  // with -h/--help and --version
  EXPECT_NE(man.find("\\-cutoff R"), std::string::npos);
  EXPECT_EQ(man.rfind(".TH kavri_demo 1", 0), 0u);
  EXPECT_NE(cli_version_line(kCmd).find("kavri_demo"), std::string::npos);
}

}  // namespace
