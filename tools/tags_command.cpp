// `tarnel tags check SCHEMA TAGS`. apply() must stay silent about the lines it drops; this command
// runs the same line parser and says, for each dropped line, why, as "<line number>: <reason>".
// Exit status: 0 when every line took effect (comments and blank lines aside), 1 when any did
// not, 2 when the schema or the tagged-value file cannot be read.
#include "commands.h"

#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNTaggedValueLine.h"

#include <iostream>
#include <memory>
#include <string>

namespace {

// The lines of `tagsFile` that have no effect on the schema in `schemaFile`, written to `out`;
// returns how many there were.
size_t checkTags(const std::string& schemaFile, const std::string& tagsFile, std::ostream& out) {
    const std::unique_ptr<TNSchema> owned(TNSchema::load(schemaFile).get());
    const SgxSimplePtr<TNSchema> schema(owned.get());
    std::ifstream in = tnOpenTaggedValueFile(tagsFile);
    size_t lineNumber = 0, failed = 0;
    for (std::string line; std::getline(in, line);) {
        ++lineNumber;
        TNTaggedValueLineOutcome outcome;
        try {
            tnApplyTaggedValueLine(schema, line, outcome);
            continue;
        } catch (const std::exception& e) {
            SgxString why = tnDescribeTaggedValueOutcome(outcome);
            if (why.empty()) { // not a fault of the line's own: say what was raised, on one line
                why = e.what();
                for (char& c : why)
                    if (c == '\n')
                        c = ' ';
            }
            out << lineNumber << ": " << why << "\n";
        }
        ++failed;
    }
    return failed;
}

} // namespace

void addTagsCommand(CLI::App& app) {
    CLI::App* tags = app.add_subcommand("tags", "Tagged-value files");
    tags->require_subcommand(1);
    CLI::App* check = tags->add_subcommand(
        "check", "List the lines of a tagged-value file that have no effect on a schema, with "
                 "the reason; exit status 1 when there is any, 2 when a file cannot be read");
    auto schemaFile = std::make_shared<std::string>();
    auto tagsFile = std::make_shared<std::string>();
    check->add_option("SCHEMA", *schemaFile, "Schema file")->required();
    check->add_option("TAGS", *tagsFile, "Tagged-value file")->required();
    check->callback([schemaFile, tagsFile] {
        size_t failed = 0;
        try {
            failed = checkTags(*schemaFile, *tagsFile, std::cout);
        } catch (const std::exception& e) {
            std::cerr << "tarnel tags check: " << e.what() << "\n";
            throw CLI::RuntimeError(2);
        }
        if (failed != 0)
            throw CLI::RuntimeError(1);
    });
}
