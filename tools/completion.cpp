#include "tools/completion.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <optional>
#include <vector>

#include "program/numbers.h"
#include "tools/bus.h"
#include "tools/framewords.h"
#include "tools/objects.h"

namespace nodevik_tool {

namespace {

// A command line as a shell cuts it.
struct TypedLine {
    std::vector<std::string> words;  // the last one is being typed; without quotes
    std::string before;              // of the last one, what the shell does not have completed
};

// Cuts a line into words; the program's name is left out.
TypedLine cut(const std::string& line, const std::string& breaks) {
    TypedLine typed{{""}, ""};
    bool begun = false;
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        std::string& word = typed.words.back();
        const char character = line[i];
        if (character == '\\' && quote != '\'' && i + 1 < line.size()) {
            word += line[++i];
            begun = true;
        } else if (quote != '\0' ? character == quote : character == '"' || character == '\'') {
            quote = quote == '\0' ? character : '\0';
            begun = true;
        } else if (quote == '\0' && (character == ' ' || character == '\t')) {
            if (begun) {
                typed.words.emplace_back();
            }
            typed.before.clear();
            begun = false;
        } else {
            word += character;
            begun = true;
            if (quote == '\0' && breaks.find(character) != std::string::npos) {
                typed.before = word;
            }
        }
    }
    if (typed.words.size() > 1) {
        typed.words.erase(typed.words.begin());
    }
    return typed;
}

bool begins_with(const std::string& text, const std::string& beginning) {
    return std::equal(
        beginning.begin(), beginning.end(), text.begin(),
        text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), beginning.size())),
        [](unsigned char left, unsigned char right) { return std::tolower(left) == std::tolower(right); });
}

// The file that a word names to the shell.
std::string file_named(const std::string& word) {
    const char* const home = std::getenv("HOME");
    return home != nullptr && word.rfind("~/", 0) == 0 ? home + word.substr(1) : word;
}

// What the words before the last one have chosen.
class Choice {
public:
    Choice(const CLI::App& root, const std::vector<std::string>& words) : app_(&root) {
        for (std::size_t i = 0; i + 1 < words.size(); ++i) {
            take(words[i]);
        }
    }

    const CLI::App& app() const { return *app_; }
    // The option whose value the last word is; null when it is none.
    const CLI::Option* awaited() const { return awaited_; }
    bool options_are_over() const { return options_are_over_; }
    const std::vector<const CLI::Option*>& given() const { return given_; }

    // An option of the command, or of those that it is one of.
    const CLI::Option* option(const std::string& name) const {
        for (const CLI::App* app = app_; app != nullptr; app = app->get_parent()) {
            if (const CLI::Option* found = app->get_option_no_throw(name)) {
                return found;
            }
        }
        return nullptr;
    }

    // The argument that the last word is; null when there is none left.
    const CLI::Option* argument() const { return argument_at(arguments_.size()); }

    // The word that was given for an argument whose name begins so.
    std::optional<std::string> given_for(const std::string& name) const {
        for (std::size_t i = 0; i < arguments_.size(); ++i) {
            const CLI::Option* option = argument_at(i);
            if (option != nullptr && option->get_name().rfind(name, 0) == 0) {
                return arguments_[i];
            }
        }
        return std::nullopt;
    }

    const std::vector<std::string>& descriptions() const { return descriptions_; }

private:
    void take(const std::string& word) {
        if (awaited_ != nullptr) {
            take_value(*awaited_, word);
            awaited_ = nullptr;
        } else if (!options_are_over_ && word == "--") {
            options_are_over_ = true;
        } else if (!options_are_over_ && word.rfind("--", 0) == 0) {
            take_option(word);
        } else if (const CLI::App* command = command_named(word)) {
            app_ = command;
            arguments_.clear();
        } else {
            arguments_.push_back(word);
        }
    }

    void take_option(const std::string& word) {
        const std::size_t equals = word.find('=');
        const CLI::Option* found = option(word.substr(0, equals));
        if (found == nullptr) {
            return;
        }
        given_.push_back(found);
        if (found->get_items_expected_max() > 0) {
            if (equals == std::string::npos) {
                awaited_ = found;
            } else {
                take_value(*found, word.substr(equals + 1));
            }
        }
    }

    void take_value(const CLI::Option& option, const std::string& word) {
        if (option.get_name() == "--eds") {
            descriptions_.push_back(word);
        }
    }

    const CLI::App* command_named(const std::string& word) const {
        for (const CLI::App* command : app_->get_subcommands({})) {
            if (command->get_name() == word) {
                return command;
            }
        }
        return nullptr;
    }

    const CLI::Option* argument_at(std::size_t place) const {
        const CLI::Option* last = nullptr;
        for (const CLI::Option* option : app_->get_options()) {
            if (option->get_positional()) {
                last = option;
                if (place-- == 0) {
                    return option;
                }
            }
        }
        return last != nullptr && last->get_items_expected_max() > 1 ? last : nullptr;
    }

    const CLI::App* app_;
    const CLI::Option* awaited_ = nullptr;
    bool options_are_over_ = false;
    std::vector<const CLI::Option*> given_;
    std::vector<std::string> arguments_;
    std::vector<std::string> descriptions_;  // the words of --eds
};

// How a word may go on.
struct Answer {
    std::string kind = "words";
    std::vector<std::string> candidates;  // whole words
    std::string file;                     // what a file's name begins with, for the kind "files"
};

std::vector<std::string> commands_of(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

// The options that may still be given, those of the command first.
std::vector<std::string> options_for(const Choice& choice) {
    std::vector<std::string> names;
    const auto stands_in_the_way = [&choice](const CLI::Option* option) {
        return std::any_of(choice.given().begin(), choice.given().end(), [option](const CLI::Option* given) {
            const bool once =
                given == option && option->get_multi_option_policy() != CLI::MultiOptionPolicy::TakeAll;
            return once || given->get_excludes().count(const_cast<CLI::Option*>(option)) > 0;
        });
    };
    for (const CLI::App* app = &choice.app(); app != nullptr; app = app->get_parent()) {
        for (const CLI::Option* option : app->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                if (!stands_in_the_way(option) &&
                    std::find(names.begin(), names.end(), "--" + name) == names.end()) {
                    names.push_back("--" + name);
                }
            }
        }
    }
    return names;
}

std::vector<std::string> types() {
    std::vector<std::string> names;
    for (unsigned int number = 1; number <= static_cast<unsigned int>(ObjectDataType::unsigned64); ++number) {
        const ObjectDataType type = object_data_type(number);
        if (object_is_integer(type) || object_is_real(type)) {
            names.emplace_back(object_type_short_name(type));
        }
    }
    names.insert(names.end(), {"str", "oct", "hex"});
    return names;
}

// Words with commas between them: those before the last comma stay.
Answer list_of(const std::vector<std::string>& words, const std::string& typed) {
    const std::size_t comma = typed.rfind(',');
    const std::string before = comma == std::string::npos ? "" : typed.substr(0, comma + 1);
    Answer answer{"words parts", {}, {}};
    for (const std::string& word : words) {
        answer.candidates.push_back(before + word);
    }
    return answer;
}

// The nodes that have a description of their own.
std::vector<std::string> described_nodes(const Choice& choice) {
    std::vector<std::string> nodes;
    for (const std::string& word : choice.descriptions()) {
        const std::string node = word.substr(0, word.find('='));
        if (node != word && program::whole_number(node, 1, program::highest_node)) {
            nodes.push_back(node);
        }
    }
    return nodes;
}

// The description that the command has for its objects, or null: that of its FILE, else that of its node.
std::unique_ptr<DeviceDescription> description_for(const Choice& choice) {
    std::optional<std::string> file = choice.given_for("FILE");
    const std::string node = choice.given_for("NODE").value_or("");
    for (const std::string& word : choice.descriptions()) {
        const std::size_t equals = word.find('=');
        const bool is_of_node = equals != std::string::npos && word.substr(0, equals) == node;
        const bool is_of_all = equals == std::string::npos;
        if (is_of_node || (is_of_all && !file)) {
            file = is_of_node ? word.substr(equals + 1) : word;
        }
    }
    auto description = std::make_unique<DeviceDescription>();
    return file && description->load(file_named(*file)) ? std::move(description) : nullptr;
}

// The objects as the typed word names them, by number or by name: first the objects, and the entries of the only one
// that is left.
Answer objects_for(const Choice& choice, const std::string& typed) {
    Answer answer{"names", {}, {}};
    const auto description = description_for(choice);
    if (description == nullptr) {
        return answer;
    }
    const bool by_number = typed.rfind('0', 0) == 0;
    const auto name_of = [by_number](const DeviceDescription::Object& object) {
        return by_number ? address_text(object.index, 0).substr(0, std::string_view("0x1018").size())
                         : object.name;
    };
    std::vector<const DeviceDescription::Object*> fitting;
    for (const DeviceDescription::Object& object : description->objects()) {
        const std::string name = name_of(object);
        if (begins_with(name, typed)) {
            answer.candidates.push_back(name);
        }
        if (begins_with(name, typed) || begins_with(typed, name + (by_number ? ":" : "/"))) {
            fitting.push_back(&object);
        }
    }
    if (fitting.size() == 1 && !fitting.front()->is_single()) {
        for (const DeviceDescription::Entry& entry : fitting.front()->entries) {
            answer.candidates.push_back(by_number ? address_text(entry.index, entry.subindex)
                                                  : entry.full_name());
        }
    }
    return answer;
}

// The words that the name of a type lists: "all" in "1...127|all", "tpdo" and "rpdo" in "TEXT:{tpdo,rpdo}".
std::vector<std::string> words_in(const std::string& type) {
    std::vector<std::string> words;
    if (type.find_first_of("|{") == std::string::npos) {
        return words;
    }
    constexpr const char* separators = "|{,}:";
    for (std::size_t begin = type.find_first_not_of(separators); begin != std::string::npos;) {
        const std::size_t end = std::min(type.find_first_of(separators, begin), type.size());
        const std::string word = type.substr(begin, end - begin);
        if (std::all_of(word.begin(), word.end(),
                        [](unsigned char letter) { return std::islower(letter) || letter == '-'; })) {
            words.push_back(word);
        }
        begin = type.find_first_not_of(separators, end);
    }
    return words;
}

// What an option or argument takes, by the name that its help has for it.
Answer values_for(const Choice& choice, const CLI::Option& option, const std::string& typed) {
    const std::string type = option.get_type_name();
    const std::string name = option.get_positional() ? option.get_name() : type.substr(0, type.find(":UINT"));
    if (name.find("FILE") != std::string::npos || type == "FILE") {
        const std::size_t equals = name.find('=') == std::string::npos ? std::string::npos : typed.find('=');
        return {"files", {}, equals == std::string::npos ? typed : typed.substr(equals + 1)};
    }
    if (name == "IF") {
        Answer answer;
        for (const CanInterface& interface : can_interfaces()) {
            answer.candidates.push_back(interface.name);
        }
        return answer;
    }
    if (name == "KINDS") {
        return list_of(frame_kinds(), typed);
    }
    if (name == "OBJECT=VALUE") {
        Answer answer = objects_for(choice, typed);
        answer.kind += " parts";
        for (std::string& candidate : answer.candidates) {
            candidate += '=';
        }
        return answer;
    }
    if (name.rfind("OBJECT", 0) == 0) {
        return objects_for(choice, typed);
    }
    if (name == "T") {
        return {"words", types(), {}};
    }
    Answer answer{"words", words_in(type), {}};
    if (name == "NODE") {
        const std::vector<std::string> nodes = described_nodes(choice);
        answer.candidates.insert(answer.candidates.end(), nodes.begin(), nodes.end());
    }
    return answer;
}

Answer answer_for(const CLI::App& root, const std::vector<std::string>& words) {
    const Choice choice(root, words);
    const std::string& typed = words.back();
    if (choice.awaited() != nullptr) {
        return values_for(choice, *choice.awaited(), typed);
    }
    if (!choice.options_are_over() && typed.rfind('-', 0) == 0) {
        const std::size_t equals = typed.find('=');
        const CLI::Option* option =
            equals == std::string::npos ? nullptr : choice.option(typed.substr(0, equals));
        if (option == nullptr) {
            return {"words", options_for(choice), {}};
        }
        Answer answer = values_for(choice, *option, typed.substr(equals + 1));
        for (std::string& candidate : answer.candidates) {
            candidate = typed.substr(0, equals + 1) + candidate;
        }
        return answer;
    }
    std::vector<std::string> commands = commands_of(choice.app());
    if (!commands.empty()) {
        return {"words", std::move(commands), {}};
    }
    if (const CLI::Option* argument = choice.argument()) {
        return values_for(choice, *argument, typed);
    }
    return {"words", options_for(choice), {}};
}

}  // namespace

std::string completions(const CLI::App& root, const std::string& line, const std::string& breaks) {
    const TypedLine typed = cut(line, breaks);
    const Answer answer = answer_for(root, typed.words);
    std::string text = answer.kind + "\n";
    if (answer.kind == "files") {
        const std::size_t begin = typed.words.back().size() - answer.file.size();
        text += answer.file + "\n" + typed.before.substr(std::min(begin, typed.before.size())) + "\n";
    }
    for (const std::string& candidate : answer.candidates) {
        if (begins_with(candidate, typed.words.back())) {
            text += candidate.substr(typed.before.size()) + "\n";
        }
    }
    return text;
}

}  // namespace nodevik_tool
