// `tarnel query`: compiles query text against a schema, and evaluates it on a W1 model.
#include "commands.h"

#include "tarnel/query/TNQuery.h"
#include "tarnel/tarnel.h"
#include "w1/w1_reports.h"

#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

double microsecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

struct Options {
    size_t demo = 0;
    std::string schemaFile;
    std::string file;
    std::string text;
    bool print = false;
};

[[noreturn]] void fail(const std::string& message) {
    std::cerr << "tarnel query: " << message << "\n";
    throw CLI::RuntimeError(1);
}

std::string readQuery(const Options& options) {
    if (options.file.empty())
        return options.text;
    std::ifstream in(options.file, std::ios::binary);
    if (!in)
        fail("cannot read " + options.file);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

const char* typeName(TNValueType type) {
    switch (type) {
    case TNVNone:
        return "none";
    case TNVInt:
        return "integer";
    case TNVDouble:
        return "real";
    case TNVString:
        return "text";
    case TNVBoolean:
        return "boolean";
    case TNVLong:
        return "long";
    }
    return "unknown";
}

std::string describe(const SgxSimplePtr<TNObject>& object) {
    if (object.isNull())
        return "null";
    const TNClass& cls = *object->getClass();
    return cls.name() + " " + (cls.attributeExists("name") ? (*object)["name"].asString() : "");
}

void printResult(const TNQueryResult& result) {
    switch (result.family) {
    case TNQueryFamily::Value:
        std::cout << result.value.asString() << "\n";
        if (result.value.myType() == TNVString)
            std::cout << "(text of " << result.value.asString().size() << " characters)\n";
        else
            std::cout << "(" << typeName(result.value.myType()) << ")\n";
        break;
    case TNQueryFamily::Object:
        std::cout << describe(result.object) << "\n";
        break;
    case TNQueryFamily::ObjectCollection:
        for (const SgxSimplePtr<TNObject>& object : result.objects)
            std::cout << describe(object) << "\n";
        std::cout << "(" << result.objects.size() << " objects)\n";
        break;
    case TNQueryFamily::StringCollection:
        for (const SgxString& text : result.texts)
            std::cout << text << "\n";
        std::cout << "(" << result.texts.size() << " texts)\n";
        break;
    }
}

// Compiles `text` against `schema`; on failure prints the error and exits with status 1.
TNQuery compileOrFail(const TNSchema& schema, const std::string& text, const Options& options) {
    try {
        const Clock::time_point start = Clock::now();
        TNQuery query = TNQuery::compile(schema, text);
        const double us = microsecondsSince(start);
        if (options.print)
            std::cout << query.print() << "\n";
        std::cout << "compiled in " << us << " us; yields " << tnQueryFamilyName(query.family())
                  << "\n";
        return query;
    } catch (const TNQueryError& e) {
        fail(std::string(options.file.empty() ? "" : options.file + ": ") + e.reasonText());
    }
}

void run(const Options& options) {
    if ((options.demo != 0) == !options.schemaFile.empty())
        fail("give either --demo N or --schema FILE");
    if (options.file.empty() == options.text.empty())
        fail("give either the query TEXT or --file F");
    const std::string text = readQuery(options);
    if (!options.schemaFile.empty()) {
        std::unique_ptr<TNSchema> schema;
        try {
            schema.reset(TNSchema::load(options.schemaFile).get());
        } catch (const SgxException& e) {
            fail(e.reasonText());
        }
        compileOrFail(*schema, text, options);
        return;
    }
    const size_t n = std::max<size_t>(10000, options.demo / 10000 * 10000);
    TNSchema schema;
    w1::TarnelModel model(schema);
    w1::generate(model, n);
    schema.donePopulating();
    w1::defineAllClasses(schema);
    const TNQuery query = compileOrFail(schema, text, options);
    try {
        const Clock::time_point start = Clock::now();
        const TNQueryResult result = query.evaluateOnModel(schema);
        const double us = microsecondsSince(start);
        printResult(result);
        std::cout << "evaluated in " << us / 1000 << " ms on the W1 model of " << w1::objectCount(n)
                  << " objects\n";
    } catch (const SgxException& e) {
        fail("evaluation failed: " + e.reasonText());
    }
}

} // namespace

void addQueryCommand(CLI::App& app) {
    CLI::App* query = app.add_subcommand(
        "query", "Compile a query against a schema file, or evaluate it on a W1 model; exit status "
                 "1 with the error when it does not compile");
    auto options = std::make_shared<Options>();
    query->add_option("--demo", options->demo,
                      "Evaluate on the W1 model of N objects (rounded to 10,000), from its root");
    query->add_option("--schema", options->schemaFile, "Only compile, against this schema file");
    query->add_option("--file", options->file, "Read the query from this file");
    query->add_flag("--print", options->print, "Print the query's canonical text");
    query->add_option("TEXT", options->text, "The query");
    query->callback([options] { run(*options); });
}
