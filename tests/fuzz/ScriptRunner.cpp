#include "tests/fuzz/ScriptRunner.h"

#include <unistd.h>

#include <simdjson.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "cli/Commands.h"
#include "cli/ConfigMode.h"
#include "cli/ConfigSession.h"
#include "cli/DeviceState.h"
#include "snapshot/JsonLibrary.h"

namespace fuzz {

namespace {

std::string lower(std::string_view word) {
  std::string w(word);
  for (char& c : w) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return w;
}

bool isLeaveWord(std::string_view word) {
  return lower(word) == "exit" || lower(word) == "quit";
}

// The mode, from the prompt the shell would show in it.
std::string modeName(const std::string& prompt) {
  // A session's prompt holds its name first: rova(config-s-NAME-if-Ethernet1)#.
  if (prompt.rfind("rova(config", 0) == 0 && prompt.find("-if-") != std::string::npos)
    return "interface";
  if (prompt.rfind("rova(config", 0) == 0 && prompt.find("-vrf-") != std::string::npos)
    return "vrf";
  if (prompt.rfind("rova(config", 0) == 0 && prompt.find("-nexthop-group-") != std::string::npos)
    return "nexthop-group";
  if (prompt.rfind("rova(config", 0) == 0) return "config";
  return "exec";
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& w : words) {
    if (!text.empty()) text += ' ';
    text += w;
  }
  return text;
}

}  // namespace

ScriptRunner& ScriptRunner::instance() {
  static ScriptRunner runner;
  return runner;
}

ScriptRunner::ScriptRunner() {
  cli::addCommands(exec_);
  cli::addConfigureRow(exec_);
  modes_ = cli::shellModes(exec_);
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/rova-fuzz-XXXXXX";
  if (!mkdtemp(pattern.data())) {
    std::perror(pattern.c_str());
    std::abort();
  }
  dir_ = pattern;
  writeTarget_ = path("written.json");
  useExample();
}

ScriptRunner::~ScriptRunner() {
  clearFiles();
  ::rmdir(dir_.c_str());
}

void ScriptRunner::useExample() {
  leaveModes();
  // A session another script left pending would make this script's commit depend on it.
  cli::dropSessions();
  // Loading the example costs more than most scripts, so an input that changed nothing leaves
  // it to the next. A command that changes the state says so (a one-shot command saves only
  // then), and so does every other way the state is replaced.
  const cli::DeviceState& state = cli::state();
  if (state.entityManager() && state.source() == "built-in example" && !state.unsaved()) return;
  if (cli::loadState("", {}, cli::Context{out_.fd(), err_.fd()}) != cli::kStatusOk) {
    fault("the built-in example does not load", "", err_.take());
  }
}

void ScriptRunner::use(Mox::Ptr<Statum::EntityManager> em) {
  cli::DeviceState::instance().adopt(std::move(em), "fuzz input", "");
  leaveModes();
}

bool ScriptRunner::run(std::string_view line, LineRun& result) {
  result.words = cli::splitWords(line);
  if (result.words.empty()) return true;
  const cli::ShellMode current = mode();
  if (!current.nested && result.words.size() == 1 && isLeaveWord(result.words[0])) return false;
  result.mode = modeName(current.prompt);
  result.grammar = current.grammar;
  // Matching is most of what a short line costs, so the line is matched here only when its
  // format or a `write` depends on it; runCommand matches it again.
  std::vector<std::string> words = result.words;
  if (std::any_of(words.begin(), words.end(), [](const std::string& w) {
        return lower(w) == "json" || std::string_view("write").starts_with(lower(w));
      })) {
    const cli::MatchResult match = current.grammar->match(words);
    // "vrf json" names a VRF: the match, not the word, says whether the line is in JSON.
    result.json = cli::Grammar::formatOf(match, words) == cli::Format::json;
    if (match.match && match.match->flag("write")) {
      words = {"write", writeTarget_};
      if (result.json) words.push_back("json");
    }
  }
  result.status = cli::runCommand(*current.grammar, words, cli::Context{out_.fd(), err_.fd()});
  result.out = out_.take();
  result.err = err_.take();
  return true;
}

LineRun ScriptRunner::runWords(std::vector<std::string> words) {
  LineRun result;
  const cli::ShellMode current = mode();
  result.mode = modeName(current.prompt);
  result.grammar = current.grammar;
  // "vrf json" names a VRF: the match, not the word, says whether the line is in JSON.
  result.json = std::any_of(words.begin(), words.end(),
                            [](const std::string& w) { return lower(w) == "json"; }) &&
                cli::Grammar::formatOf(current.grammar->match(words), words) == cli::Format::json;
  result.status = cli::runCommand(*current.grammar, words, cli::Context{out_.fd(), err_.fd()});
  result.words = std::move(words);
  result.out = out_.take();
  result.err = err_.take();
  return result;
}

void ScriptRunner::leaveModes() {
  // Every configuration mode has `end`; two steps at most in any case.
  for (int i = 0; i < 3 && mode().nested; ++i)
    runWords({"end"});
  if (mode().nested) fault("`end` does not leave configuration mode", "", mode().prompt);
}

std::vector<std::vector<std::string>> ScriptRunner::listingCommands(bool json) const {
  std::vector<std::vector<std::string>> commands;
  for (const std::string& vrf : cli::state().vrfNames()) {
    for (const char* af : {"ip", "ipv6"}) {
      for (const char* last : {"detail", "host", "summary"})
        commands.push_back({"show", af, "route", "vrf", vrf, last});
    }
    commands.push_back({"show", "static-routes", "vrf", vrf});
    commands.push_back({"show", "static-routes", "vrf", vrf, "dynamic"});
    commands.push_back({"show", "nexthop-group", "vrf", vrf});
    commands.push_back({"show", "nexthop-group", "summary", "vrf", vrf});
  }
  commands.push_back({"show", "running-config", "static-routes", "all"});
  if (json) {
    for (auto& c : commands)
      c.push_back("json");
  }
  return commands;
}

std::string ScriptRunner::listings(std::string_view input) {
  leaveModes();
  std::string text;
  for (auto& command : listingCommands(false)) {
    const LineRun r = runWords(std::move(command));
    check(r, input);
    text += "$ " + joined(r.words) + "\n" + r.out + r.err;
    text += "status " + std::to_string(r.status) + "\n";
  }
  return text;
}

std::string ScriptRunner::path(std::string_view name) const {
  return dir_ + "/" + std::string(name);
}

void ScriptRunner::clearFiles() {
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(dir_, ec)) {
    std::filesystem::remove_all(entry.path(), ec);
  }
}

void ScriptRunner::check(const LineRun& r, std::string_view input) {
  const std::string where = "line (" + r.mode + " mode): " + joined(r.words) + "\n";
  if (r.status == cli::kStatusInternal) fault("internal error", input, where + r.err);
  if (r.json) {
    // simdjson is as strict as a JSON reader gets (one document, UTF-8 checked), and much
    // faster here than a parser compiled with the fuzzer's instrumentation.
    static simdjson::dom::parser parser;
    if (const auto error = parser.parse(r.out).error(); error) {
      fault("not one JSON document", input,
            where + Snapshot::jsonErrorMessage(error) + "\nstdout:\n" + r.out);
    }
  }
  for (char c : r.err) {
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7f) {
      fault("a control character in a message", input, where + r.err);
    }
  }
}

void ScriptRunner::fault(const char* what, std::string_view input, std::string_view detail) {
  std::fprintf(stderr, "FAULT: %s\n--- input\n%.*s\n--- detail\n%.*s\n", what,
               static_cast<int>(input.size()), input.data(), static_cast<int>(detail.size()),
               detail.data());
  clearFiles();
  ::rmdir(dir_.c_str());
  std::abort();
}

}  // namespace fuzz
