#include "simulator/optionreader.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>

#include "program/numbers.h"

namespace simulator {

namespace {

constexpr std::size_t column_width = 24;

// Usage, what the program does, and the groups of options one after the other.
class Form final : public CLI::Formatter {
public:
    explicit Form(std::string usage) : usage_(std::move(usage)) { column_width(simulator::column_width); }

    std::string make_help(const CLI::App* app, std::string /*name*/, CLI::AppFormatMode mode) const override {
        const std::string footer = app->get_footer();
        return usage_ + "\n\n" + app->get_description() + "\n\n" + make_groups(app, mode) +
               (footer.empty() ? "" : "\n" + footer + "\n");
    }
    std::string make_group(std::string group, bool is_positional,
                           std::vector<const CLI::Option*> options) const override {
        std::string text = group + ":\n";
        for (const CLI::Option* option : options) {
            text += make_option(option, is_positional);
        }
        return text;
    }

private:
    std::string usage_;
};

}  // namespace

OptionReader::OptionReader(std::string usage, std::string does)
    : app_(std::make_unique<CLI::App>(std::move(does))) {
    app_->set_help_flag();
    app_->formatter(std::make_shared<Form>(std::move(usage)));
}

OptionReader::~OptionReader() = default;

void OptionReader::begin_group(const std::string& title) {
    app_->option_defaults()->group(title);
}

void OptionReader::set_footer(std::string text) {
    app_->footer(std::move(text));
}

void OptionReader::add_whole_number(const std::string& name, const std::string& value, std::int64_t lowest,
                                    std::int64_t highest, std::function<void(std::int64_t)> store,
                                    const std::string& does) {
    const auto read = [=, store = std::move(store)](std::string_view text) {
        const auto number = program::whole_number(text, lowest, highest);
        if (!number) {
            return name + " takes a whole number from " + std::to_string(lowest) + " to " +
                   std::to_string(highest) + ", not '" + std::string(text) + "'";
        }
        store(*number);
        return std::string();
    };
    add_text(name, value, read, does);
}

void OptionReader::add_text(const std::string& name, const std::string& value, Store store,
                            const std::string& does) {
    const auto take_all = [store = std::move(store)](const CLI::results_t& values) {
        for (const std::string& text : values) {
            if (const std::string reason = store(text); !reason.empty()) {
                throw CLI::ValidationError(reason);
            }
        }
        return true;
    };
    app_->add_option(name, take_all, does)->option_text(value)->expected(1)->take_all();
}

void OptionReader::add_flag(const std::string& name, bool& flag, const std::string& does) {
    app_->add_flag(name, flag, does)->disable_flag_override();
}

void OptionReader::add_standard_flags(bool& help, bool& version) {
    add_flag("--help", help, "this text");
    app_->add_flag("-h", help)->group("");
    add_flag("--version", version, "the program's version");
}

void OptionReader::add_command(const std::string& name, std::vector<std::string>& command,
                               const std::string& does) {
    app_->add_flag(name, does)->option_text("COMMAND ...");
    command_name_ = name;
    command_ = &command;
}

bool OptionReader::takes_value(const std::string& name) const {
    const CLI::Option* option = app_->get_option_no_throw(name);
    return option != nullptr && option->get_expected_max() > 0;
}

std::string OptionReader::parse(std::span<const char* const> arguments) {
    std::vector<std::string> words;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string word = arguments[i];
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (!command_name_.empty() && word == command_name_) {
            command_->assign(arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1, arguments.end());
            if (command_->empty()) {
                return command_name_ + " needs a command";
            }
            break;
        }
        if (!takes_value(name)) {
            // CLI11 would take a flag with a value, and words without dashes, for something of its own.
            if (app_->get_option_no_throw(word) == nullptr) {
                return "unknown option '" + word + "'";
            }
            words.push_back(word);
            continue;
        }
        words.push_back(name);
        if (equals != std::string::npos) {
            words.push_back(word.substr(equals + 1));
        } else if (++i < arguments.size()) {
            words.emplace_back(arguments[i]);
        } else {
            return name + " needs a value";
        }
    }
    try {
        std::reverse(words.begin(), words.end());
        app_->parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        return error.what();
    }
    return {};
}

std::string OptionReader::help() const {
    return app_->help();
}

}  // namespace simulator
