#include "tarnel/tarnel.h"
#include "w1/w1_reports.h"

#include "commands.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <iostream>

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Runs `report` once and prints its figure and its time.
template <class Report> void timed(const char* title, Report report) {
    const Clock::time_point start = Clock::now();
    const auto figure = report();
    const double ms = millisecondsSince(start);
    std::cout << title << figure << "\n  (" << ms << " ms)\n";
}

// Builds the W1 model of `objects` objects and runs the three reports on it; first writes the
// W1 schema (with its compound association) to `schemaFile` unless that is empty.
void demo(size_t objects, const std::string& schemaFile) {
    const size_t n = std::max<size_t>(10000, objects / 10000 * 10000);
    TNSchema schema;
    w1::TarnelModel model(schema);
    if (!schemaFile.empty()) {
        TNSchema saved;
        w1::TarnelModel::define(saved);
        w1::defineAllClasses(saved);
        saved.save(schemaFile);
        std::cout << "W1 schema written to " << schemaFile << "\n";
    }
    Clock::time_point start = Clock::now();
    w1::generate(model, n);
    schema.donePopulating();
    std::cout << "W1 model: " << w1::objectCount(n) << " objects built in "
              << millisecondsSince(start) << " ms\n";
    w1::defineAllClasses(schema);
    std::cout << "Package navigates \"All Classes\" by: " << w1::allClassesSource << "\n\n";

    const w1::Reports reports;
    TNObject* any = schema.getClass("Package")->objects().front().get();
    timed("Q1 public operations by name: ", [&] {
        const SgxString names = reports.q1(any);
        return std::to_string(names.size()) + " characters, starting \"" + names.substr(0, 60) +
               "\"";
    });
    timed("Q2 public operations of every class, summed: ", [&] { return reports.q2(any); });
    timed("Q3 classes below each top package, summed: ", [&] { return reports.q3(any); });
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"tarnel: typed, navigable models for report generators"};
    app.require_subcommand(1);
    CLI::App* demoCommand =
        app.add_subcommand("demo", "Build a report model and run three reports on it");
    size_t objects = 10000;
    demoCommand->add_option("--objects", objects, "Model size in objects (rounded to 10,000)");
    std::string schemaFile;
    demoCommand->add_option("--save-schema", schemaFile,
                            "Also write the W1 schema (with \"All Classes\") to this file");
    demoCommand->callback([&] { demo(objects, schemaFile); });
    addSchemaCommand(app);
    addTagsCommand(app);
    addImportCommand(app);
    addQueryCommand(app);
    CLI11_PARSE(app, argc, argv);
    return 0;
}
