// Parser, --help text and man page of the suite's tool commands, all made from one table.
#include "cli_options.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "kavri_version.h"

namespace {

const std::vector<std::string> kNoValues;

const CliOption* find_option(const CliCommand& cmd, const std::string& arg) {
  for (const CliOption& o : cmd.options)
    if (arg == o.name) return &o;
  return nullptr;
}

// An argument that starts a new option: "-" followed by a letter or a second "-".
bool looks_like_option(const std::string& arg) {
  return arg.size() >= 2 && arg[0] == '-' &&
         (std::isalpha(static_cast<unsigned char>(arg[1])) || arg[1] == '-');
}

std::string option_head(const CliOption& o) {
  std::string head = o.name;
  if (o.values != 0 && o.metavar && *o.metavar) head += std::string(" ") + o.metavar;
  return head;
}

// Escapes a text for troff: backslashes and a leading dot or quote.
std::string troff(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') out += "\\e";
    else if (c == '-') out += "\\-";
    else out += c;
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out.insert(0, "\\&");
  return out;
}

}  // namespace

const std::vector<std::string>& CliArgs::last(const std::string& name) const {
  auto it = given.find(name);
  return it == given.end() || it->second.empty() ? kNoValues : it->second.back();
}

std::string CliArgs::value(const std::string& name, const std::string& fallback) const {
  const std::vector<std::string>& v = last(name);
  return v.empty() ? fallback : v.front();
}

bool parse_cli(const CliCommand& cmd, int argc, const char* const* argv, CliArgs& out,
               std::string& error) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help" || arg == "--version" || arg == "--manpage") {
      out.given[arg].emplace_back();
      continue;
    }
    if (!looks_like_option(arg)) {
      out.positional.push_back(arg);
      continue;
    }
    const CliOption* o = find_option(cmd, arg);
    if (!o) {
      error = "Unknown option: " + arg;
      return false;
    }
    if (!o->repeatable && out.has(arg)) {
      error = "Option given twice: " + arg;
      return false;
    }
    std::vector<std::string> values;
    if (o->values == kRestOfValues) {
      while (i + 1 < argc && !looks_like_option(argv[i + 1])) values.push_back(argv[++i]);
      if (values.empty()) {
        error = "Missing value of option: " + arg;
        return false;
      }
    } else {
      for (int k = 0; k < o->values; ++k) {
        if (i + 1 >= argc) {
          error = "Missing value of option: " + arg;
          return false;
        }
        values.push_back(argv[++i]);
      }
    }
    out.given[arg].push_back(std::move(values));
  }
  return true;
}

std::string cli_usage(const CliCommand& cmd) {
  std::string text = std::string(cmd.name) + " - " + cmd.summary + "\n\nUsage: " + cmd.name +
                     " " + cmd.synopsis + "\n\nOptions:\n";
  size_t width = 0;
  for (const CliOption& o : cmd.options) width = std::max(width, option_head(o).size());
  width = std::max(width, std::string("--version").size());
  auto row = [&](const std::string& head, const std::string& help) {
    text += "  " + head + std::string(width - head.size() + 2, ' ') + help + "\n";
  };
  for (const CliOption& o : cmd.options) row(option_head(o), o.help);
  row("-h, --help", "print this text and exit");
  row("--version", "print the version and exit");
  row("--manpage", "print the man page (troff) and exit");
  if (cmd.details && *cmd.details) text += std::string("\n") + cmd.details;
  return text;
}

std::string cli_manpage(const CliCommand& cmd, const std::string& version) {
  std::string page = ".TH " + std::string(cmd.name) + " 1 \"\" \"KAVRI " + version +
                     "\" \"KAVRI charge-transport suite\"\n.SH NAME\n" + troff(cmd.name) +
                     " \\- " + troff(cmd.summary) + "\n.SH SYNOPSIS\n.B " + troff(cmd.name) +
                     "\n" + troff(cmd.synopsis) + "\n.SH OPTIONS\n";
  for (const CliOption& o : cmd.options)
    page += ".TP\n.B " + troff(option_head(o)) + "\n" + troff(o.help) + "\n";
  page += ".TP\n.B \\-h, \\-\\-help\nprint the usage text and exit\n";
  page += ".TP\n.B \\-\\-version\nprint the version and exit\n";
  if (cmd.details && *cmd.details) {
    page += ".SH DESCRIPTION\n.nf\n";
    page += troff(cmd.details);
    if (page.back() != '\n') page += '\n';
    page += ".fi\n";
  }
  return page;
}

std::string cli_version_line(const CliCommand& cmd) {
  return std::string(cmd.name) + " (KAVRI charge-transport suite) " + KAVRI_PROJECT_VERSION +
         "\n";
}

bool cli_answer_standard(const CliCommand& cmd, const CliArgs& args) {
  std::string text;
  if (args.has("-h") || args.has("--help"))
    text = cli_usage(cmd);
  else if (args.has("--version"))
    text = cli_version_line(cmd);
  else if (args.has("--manpage"))
    text = cli_manpage(cmd, KAVRI_PROJECT_VERSION);
  else
    return false;
  std::fputs(text.c_str(), stdout);
  return true;
}
