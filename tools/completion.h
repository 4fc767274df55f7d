/// @file
/// What can stand at the end of a command line that is being typed.
///
/// The completion of the shell (nodevik.bash) hands over the line as far as it is typed and gets lines of text: first
/// one word that says what follows, then the candidates, each what the last piece of the line may become:
///
///     $ nodevik __complete 'nodevik sdo re' ':='
///     words
///     read
///
/// | First line | Then |
/// |---|---|
/// | `words` | candidates |
/// | `names` | candidates that may need quotes |
/// | `files` | the beginning of a file's name, for the shell to complete, and what of that is ahead of the last piece |
///
/// With ` parts` behind it the candidates do not end their word: a comma may follow, say.
///
/// Everything is taken from the command line as it is registered, so a new command is known at once.

#ifndef TOOLS_COMPLETION_H
#define TOOLS_COMPLETION_H

#include <CLI/CLI.hpp>
#include <string>

namespace nodevik_tool {

/// The word that asks for completions, in the place of a command. No help tells of it.
inline constexpr const char* completion_word = "__complete";

/// Tells how a command line may go on. Files that --eds or an argument names are read for the names of objects; one
/// that cannot be used gives none.
///
/// @param root    the program's command line with all its commands
/// @param line    what is typed, from the program's name to the cursor
/// @param breaks  characters at which the shell cuts words, of which it has the last piece completed (COMP_WORDBREAKS
///                of bash(1)); nothing in quotes is cut
/// @return        the lines that are told
std::string completions(const CLI::App& root, const std::string& line, const std::string& breaks);

}  // namespace nodevik_tool

#endif
