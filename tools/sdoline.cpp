// The command lines of "nodevik sdo".

#include <memory>

#include "tools/commandregistry.h"
#include "tools/sdocommand.h"

namespace nodevik_tool {

namespace {

// What follows OBJECT in "sdo write" is the value, also when it begins with '-', unless it is an option of the
// command's. It is put behind all options, where nothing is taken for one, and ahead of what is too much.
void move_value_to_end(const CLI::App& root, const CLI::App& write, std::vector<std::string>& words) {
    const auto option_of = [&root, &write](const std::string& word) {
        const std::string name = word.substr(0, word.find('='));
        const CLI::Option* option = word.rfind("--", 0) == 0 ? write.get_option_no_throw(name) : nullptr;
        return option != nullptr || word.rfind("--", 0) != 0 ? option : root.get_option_no_throw(name);
    };
    const std::vector<std::string> command{"sdo", "write"};
    constexpr std::size_t words_before = 4;  // the command, NODE and OBJECT
    std::size_t count = 0;
    std::vector<std::string> others;
    std::vector<std::string> values;
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (*word == "--help" || (*word == "--" && values.empty())) {
            return;
        }
        if (*word == "--") {
            continue;
        }
        const CLI::Option* option = option_of(*word);
        if (option == nullptr) {
            if (count < command.size() && *word != command[count]) {
                return;
            }
            (++count > words_before ? values : others).push_back(*word);
            continue;
        }
        others.push_back(*word);
        if (option->get_items_expected_max() > 0 && word->find('=') == std::string::npos) {
            if (++word == words.end()) {
                values.clear();  // none of them is to be taken for the option's
                break;
            }
            others.push_back(*word);
        }
    }
    words = std::move(others);
    if (!values.empty()) {
        words.emplace_back("--");
        words.insert(words.end(), values.begin(), values.end());
    }
}

void add_transfer(CLI::App& command, const std::shared_ptr<SdoArguments>& arguments) {
    add_node(command, arguments->node);
    command.add_option("OBJECT", arguments->object, "0x1018:1, 0x1018, or a name with --eds")->required();
    command
        .add_option("--type", arguments->type, "bool, u8 to u64, i8 to i64, r32, r64, str, oct (bytes), hex")
        ->type_name("T");
    CLI::Option* block = command.add_flag_callback(
        "--block", [arguments] { arguments->mode = SdoMode::block; },
        "As a block transfer, whatever the length");
    command
        .add_flag_callback(
            "--segments", [arguments] { arguments->mode = SdoMode::segmented; }, "Never as a block transfer")
        ->excludes(block);
}

void add_read(CommandRegistry& registry, CLI::App& sdo) {
    const auto arguments = std::make_shared<SdoArguments>();
    CLI::App* read = registry.add(sdo, "read", "Read an object: one entry, or all of an array or record",
                                  "nodevik --can can0 sdo read 5 0x1008 --type str");
    add_transfer(*read, arguments);
    read->add_option("--out", arguments->file, "Put the bytes into a file; with --type the text of that type")
        ->type_name("FILE");
    registry.on(*read, [arguments](const Session& session) { return read_objects(session, *arguments); });
}

void add_write(CommandRegistry& registry, CLI::App& sdo) {
    const auto arguments = std::make_shared<SdoArguments>();
    CLI::App* write =
        registry.add(sdo, "write", "Write an object", "nodevik --can can0 sdo write 5 0x1017 500 --type u16");
    add_transfer(*write, arguments);
    CLI::Option* value =
        write->add_option("VALUE", arguments->value, "What is written; it may begin with '-'");
    CLI::Option* in = write
                          ->add_option("--in", arguments->file,
                                       "Write the bytes of a file; with --type the text of that type")
                          ->type_name("FILE")
                          ->excludes(value);
    const auto check = [value, in] {
        if (value->count() == 0 && in->count() == 0) {
            throw CLI::ValidationError("VALUE", "a value or --in FILE is needed");
        }
    };
    registry.on(*write, check,
                [arguments](const Session& session) { return write_object(session, *arguments); });
    registry.rewrite([root = &registry.root(), write](std::vector<std::string>& words) {
        move_value_to_end(*root, *write, words);
    });
}

}  // namespace

void add_sdo_commands(CommandRegistry& registry) {
    CLI::App* sdo = registry.add(registry.root(), "sdo", "Read or write an object of a node",
                                 "nodevik sdo read 5 0x1018:1");
    sdo->require_subcommand(1);
    add_read(registry, *sdo);
    add_write(registry, *sdo);
}

}  // namespace nodevik_tool
