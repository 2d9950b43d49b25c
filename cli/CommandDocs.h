#pragma once
// What is generated from the command table, so that it cannot drift from it: the manual page
// rova(1) and the bash completion script.

#include <string>

#include "cli/Grammar.h"

namespace cli {

// The manual page in roff: the program's usage text (its --help), every command row with its
// help, every argument type.
std::string manPage(const Grammar& grammar, const std::string& usage, const std::string& version);

// A bash completion script for `rova`: the words that may follow each sequence of typed
// words, found by walking the grammar's own completion. Throws GrammarError for an argument
// type the walk has no sample word for.
std::string bashCompletion(const Grammar& grammar);

}  // namespace cli
