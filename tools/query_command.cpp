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
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double microsecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

struct Options {
    size_t demo = 0;
    std::string schemaFile;
    std::string ecoreFile;
    std::vector<std::string> xmiFiles;
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

// Evaluates `query` from `start` and prints the result and the time, saying what the model was.
void evaluateAndPrint(const TNQuery& query, const SgxSimplePtr<TNObject>& start,
                      const std::string& model) {
    try {
        const Clock::time_point begin = Clock::now();
        const TNQueryResult result = query.evaluate(start);
        const double us = microsecondsSince(begin);
        printResult(result);
        std::cout << "evaluated in " << us / 1000 << " ms on " << model << "\n";
    } catch (const SgxException& e) {
        fail("evaluation failed: " + e.reasonText());
    }
}

// The object an imported model's queries start from: its root when it has one, else the oldest
// object of the first class that has any.
SgxSimplePtr<TNObject> startOf(const TNSchema& schema) {
    if (!schema.rootObject().isNull())
        return schema.rootObject();
    for (const auto& cls : schema.classes())
        if (!cls->instances().empty())
            return cls->instances().front();
    return {};
}

void run(const Options& options) {
    const bool imported = !options.ecoreFile.empty() || !options.xmiFiles.empty();
    if ((options.demo != 0) + !options.schemaFile.empty() + imported != 1)
        fail("give one of --demo N, --schema FILE, or --ecore META --xmi FILE...");
    if (imported && (options.ecoreFile.empty() || options.xmiFiles.empty()))
        fail("--ecore and --xmi go together");
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
    TNSchema schema;
    if (imported) {
        try {
            importModels(schema, options.ecoreFile, options.xmiFiles);
        } catch (const SgxException& e) {
            fail(e.reasonText());
        }
        const TNQuery query = compileOrFail(schema, text, options);
        size_t objects = 0;
        for (const auto& cls : schema.classes())
            objects += cls->instances().size();
        evaluateAndPrint(query, startOf(schema),
                         "the imported model of " + std::to_string(objects) + " objects");
        return;
    }
    const size_t n = std::max<size_t>(10000, options.demo / 10000 * 10000);
    w1::TarnelModel model(schema);
    w1::generate(model, n);
    schema.donePopulating();
    w1::defineAllClasses(schema);
    const TNQuery query = compileOrFail(schema, text, options);
    evaluateAndPrint(query, schema.rootObject(),
                     "the W1 model of " + std::to_string(w1::objectCount(n)) + " objects");
}

} // namespace

void addQueryCommand(CLI::App& app) {
    CLI::App* query = app.add_subcommand(
        "query", "Compile a query against a schema file, or evaluate it on a W1 model or on XMI "
                 "models; exit status 1 with the error when it does not compile");
    auto options = std::make_shared<Options>();
    query->add_option("--demo", options->demo,
                      "Evaluate on the W1 model of N objects (rounded to 10,000), from its root");
    query->add_option("--schema", options->schemaFile, "Only compile, against this schema file");
    query->add_option("--ecore", options->ecoreFile,
                      "Evaluate on models imported from XMI files (--xmi) of this metamodel, "
                      "from the model's root or its oldest object");
    // One file an option, so that the query text after it is not taken for a file.
    query
        ->add_option("--xmi", options->xmiFiles,
                     "An XMI model file of the --ecore metamodel (repeat for more)")
        ->allow_extra_args(false);
    query->add_option("--file", options->file, "Read the query from this file");
    query->add_flag("--print", options->print, "Print the query's canonical text");
    query->add_option("TEXT", options->text, "The query");
    query->callback([options] { run(*options); });
}
