// The manual page and the bash completion, generated from the command table.

#include "cli/CommandDocs.h"

#include <map>
#include <set>
#include <sstream>
#include <vector>

namespace cli {

namespace {

// roff text: a backslash doubled, a leading dot or quote escaped, dashes kept as hyphens.
std::string roff(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out.insert(0, "\\&");
  return out;
}

}  // namespace

std::string manPage(const Grammar& grammar, const std::string& usage, const std::string& version) {
  std::ostringstream out;
  out << ".TH ROVA 1 \"\" \"rova " << version << "\" \"User Commands\"\n";
  out << ".SH NAME\nrova \\- list a router's routing state\n";
  std::istringstream lines(usage);
  std::string line;
  out << ".SH SYNOPSIS\n.nf\n";
  bool first = true;
  std::ostringstream options;
  while (std::getline(lines, line)) {
    if (first) {
      out << roff(line.rfind("usage: ", 0) == 0 ? line.substr(7) : line) << "\n";
      first = false;
    } else {
      options << roff(line) << "\n";
    }
  }
  out << ".fi\n.SH DESCRIPTION\n"
         "Without a command, rova starts an interactive shell; with one, it runs it and ends. "
         "Keywords may be abbreviated; \\fBjson\\fR after a command writes its output as "
         "JSON.\n";
  out << ".SH OPTIONS\n.nf\n" << options.str() << ".fi\n";
  out << ".SH COMMANDS\n";
  for (const Row* row : grammar.rows()) {
    out << ".TP\n.B " << roff(row->syntax) << "\n";
    bool any = false;
    for (const WordHelp& h : row->help) {
      if (any) out << ".br\n";
      out << "\\fI" << roff(h.word) << "\\fR: " << roff(h.text) << "\n";
      any = true;
    }
  }
  out << ".SH ARGUMENTS\n";
  for (const ArgType* type : grammar.types()) {
    out << ".TP\n.B " << roff(type->name) << "\n" << roff(type->help) << "\n";
    if (!type->choices.empty()) {
      out << ".br\nOne of:";
      for (const Choice& c : type->choices)
        out << " " << roff(c.word);
      out << "\n";
    }
  }
  out << ".SH EXIT STATUS\n0 when the command worked, 1 when it failed or a check refused, "
         "2 for a command or state that is not understood, 70 for an internal error.\n";
  out << ".SH SEE ALSO\nThe documents under docs/ in the source tree.\n";
  return out.str();
}

namespace {

// A word each free argument type accepts, to walk on past it.
const std::map<std::string, std::string> kSamples = {
    {"NAME", "default"},
    {"A.B.C.D", "10.0.0.1"},
    {"A.B.C.D/LEN", "10.0.0.0/8"},
    {"X:X::X", "2001:db8::1"},
    {"X:X::X/LEN", "2001:db8::/32"},
    {"INTF", "Ethernet1"},
    {"TEXT", "x"},
    {"RD", "1:1"},
    {"VALUE", "x"},
    {"FILE", "f"},
    {"TYPE", "Rova::RouteSorter"},
    {"GROUP", "G"},
    {"LINES", "24"},
    {"SESSION", "s1"},
};

class CompletionWalk {
 public:
  explicit CompletionWalk(const Grammar& g) : grammar_(g) {}

  // key: "^" and the typed words, every argument as "*" (bash keys cannot be empty).
  void walk(std::vector<std::string>& words, const std::string& key) {
    const Completion c = grammar_.complete(words, "");
    if (!c.error.empty()) return;
    std::set<std::string> offered;
    for (const Candidate& cand : c.candidates) {
      if (cand.kind == Candidate::Kind::keyword) offered.insert(cand.text);
    }
    std::string signature = key + "|";
    for (const Candidate& cand : c.candidates)
      signature += cand.text + " ";
    if (!walked_.insert(signature).second) return;
    tree_[key].insert(offered.begin(), offered.end());
    for (const Candidate& cand : c.candidates) {
      if (cand.kind == Candidate::Kind::end || cand.text == "json") continue;
      std::string word = cand.text, next = key + " " + cand.text;
      if (cand.kind == Candidate::Kind::argument) {
        auto sample = kSamples.find(cand.text);
        if (sample == kSamples.end())
          throw GrammarError("no sample word for the argument type '" + cand.text + "'");
        word = sample->second;
        next = key + " *";
      }
      words.push_back(word);
      walk(words, next);
      words.pop_back();
    }
  }

  const std::map<std::string, std::set<std::string>>& tree() const { return tree_; }

 private:
  const Grammar& grammar_;
  std::map<std::string, std::set<std::string>> tree_;
  std::set<std::string> walked_;
};

}  // namespace

std::string bashCompletion(const Grammar& grammar) {
  CompletionWalk walk(grammar);
  std::vector<std::string> words;
  walk.walk(words, "^");
  std::ostringstream out;
  out << "# bash completion for rova, generated from its command table.\n"
         "# The words that may follow the words typed so far (after '^'), an argument as '*'.\n"
         "declare -gA _rova_next=(\n";
  for (const auto& [key, next] : walk.tree()) {
    out << "  [\"" << key << "\"]=\"";
    bool firstWord = true;
    for (const std::string& w : next) {
      out << (firstWord ? "" : " ") << w;
      firstWord = false;
    }
    out << "\"\n";
  }
  out << ")\n"
         "_rova() {\n"
         "  local cur=\"${COMP_WORDS[COMP_CWORD]}\" key=\"^\" w i\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    w=\"${COMP_WORDS[i]}\"\n"
         "    case \"$w\" in\n"
         "      --state) ((i++)); continue ;;\n"
         "      -*) continue ;;\n"
         "    esac\n"
         "    if [[ -n \"${_rova_next[\"$key $w\"]+x}\" ]]; then\n"
         "      key=\"$key $w\"\n"
         "    else\n"
         "      key=\"$key *\"\n"
         "    fi\n"
         "  done\n"
         "  if [[ \"$cur\" == -* ]]; then\n"
         "    COMPREPLY=($(compgen -W \"--state --live --trace --keep-going --help\" -- "
         "\"$cur\"))\n"
         "    return\n"
         "  fi\n"
         "  if [[ \"${COMP_WORDS[COMP_CWORD-1]}\" == --state ]]; then\n"
         "    COMPREPLY=($(compgen -f -- \"$cur\"))\n"
         "    return\n"
         "  fi\n"
         "  COMPREPLY=($(compgen -W \"${_rova_next[$key]} json\" -- \"$cur\"))\n"
         "}\n"
         "complete -F _rova rova\n";
  return out.str();
}

}  // namespace cli
