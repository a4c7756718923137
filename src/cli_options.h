// Command lines of the suite's own tools (kavri_jobscript, kavri_crystal, kavri_mobility):
// one option table per command, from which the parser, the --help text and the man page are
// all made, so the three can never disagree.
#pragma once
#include <map>
#include <string>
#include <vector>

// One option of a command. `values` is the number of arguments the option takes: 0 for a
// flag, N for exactly N, and kRestOfValues for "every following argument that does not
// begin with '-' followed by a letter" (file lists such as `-mol a.mol b.mol`).
struct CliOption {
  const char* name;      // "-cutoff"
  int values;            // see above
  const char* metavar;   // "R" (shown in usage); empty for flags
  const char* help;      // one line
  bool repeatable = false;
};

constexpr int kRestOfValues = -1;

struct CliCommand {
  const char* name;      // "kavri_crystal"
  const char* summary;   // one line: what the command does
  const char* synopsis;  // "[-config file] [file.cif] [options]"
  std::vector<CliOption> options;
  const char* details = "";  // free text after the option list (exit statuses, examples)
};

// What the parser found: every occurrence of each option with its values, in command-line
// order, and the positional arguments.
struct CliArgs {
  std::map<std::string, std::vector<std::vector<std::string>>> given;
  std::vector<std::string> positional;

  bool has(const std::string& name) const { return given.count(name) != 0; }
  // The values of the last occurrence of `name` (empty when absent).
  const std::vector<std::string>& last(const std::string& name) const;
  // The single value of the last occurrence, or `fallback` when absent.
  std::string value(const std::string& name, const std::string& fallback = "") const;
};

// Parses argv[1..] against the table. On an unknown option or a missing value, `error`
// is set to a one-line message and false is returned. `-h`, `--help`, `--version` and
// `--manpage` (the build writes the installed man page with it) are always known (flags);
// callers look for them first.
bool parse_cli(const CliCommand& cmd, int argc, const char* const* argv, CliArgs& out,
               std::string& error);

// The --help text: summary, usage line and one line per option.
std::string cli_usage(const CliCommand& cmd);

// A man page (troff, section 1) made from the same table.
std::string cli_manpage(const CliCommand& cmd, const std::string& version);

// "<command> <project version>" as every tool of the suite prints it for --version.
std::string cli_version_line(const CliCommand& cmd);

// Answers -h/--help (usage text), --version (version line) and --manpage (man page) on
// standard output, in that order of precedence; true when one was answered and the command
// ends with status 0.
bool cli_answer_standard(const CliCommand& cmd, const CliArgs& args);
