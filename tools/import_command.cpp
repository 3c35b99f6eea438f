// `tarnel import ecore FILE.ecore [--save-schema OUT]` and `tarnel import xmi --ecore META
// FILE...`: import a metamodel, or models of it, and print what was made.
#include "commands.h"

#include "tarnel/import/TNImport.h"
#include "tarnel/tarnel.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

// Runs `body`; an import or schema error is printed and ends the program with status 1.
template <class F> void reporting(F&& body) {
    try {
        body();
    } catch (const SgxException& e) {
        std::cerr << "tarnel import: " << e.reasonText() << "\n";
        std::exit(1);
    }
}

void importEcore(const std::string& file, const std::string& schemaFile) {
    TNSchema schema;
    const auto metamodel = TNEcoreMetamodel::import(schema, file);
    schema.donePopulating();
    for (const auto& cls : schema.classes())
        std::cout << cls->name() << ": " << cls->attrCount() << " attributes, "
                  << cls->associationCount() << " associations\n";
    std::cout << schema.classCount() << " classes, " << schema.enumCount()
              << " enumeration types from " << metamodel->files().size() << " file(s)\n";
    if (!schemaFile.empty())
        schema.save(schemaFile);
}

void importXmi(const std::string& ecore, const std::vector<std::string>& files) {
    TNSchema schema;
    importModels(schema, ecore, files);
    size_t objects = 0;
    for (const auto& cls : schema.classes())
        if (!cls->instances().empty()) {
            std::cout << cls->name() << ": " << cls->instances().size() << "\n";
            objects += cls->instances().size();
        }
    std::cout << objects << " objects\n";
}

} // namespace

void importModels(TNSchema& schema, const std::string& ecore,
                  const std::vector<std::string>& models) {
    const auto metamodel = TNEcoreMetamodel::import(schema, ecore);
    TNXmiImporter importer(*metamodel);
    for (const std::string& file : models)
        importer.read(file);
    importer.finish();
    schema.donePopulating();
}

void addImportCommand(CLI::App& app) {
    CLI::App* import = app.add_subcommand("import", "Import Ecore metamodels and XMI models");
    import->require_subcommand(1);

    CLI::App* ecore = import->add_subcommand(
        "ecore", "Import a .ecore metamodel; print each class's attribute and association counts");
    static std::string ecoreFile;
    static std::string schemaFile;
    ecore->add_option("FILE", ecoreFile, "The .ecore file")->required();
    ecore->add_option("--save-schema", schemaFile, "Also write the schema to this file");
    ecore->callback([] { reporting([] { importEcore(ecoreFile, schemaFile); }); });

    CLI::App* xmi = import->add_subcommand(
        "xmi", "Import XMI models of a .ecore metamodel; print the objects of each class");
    static std::string metaFile;
    static std::vector<std::string> modelFiles;
    xmi->add_option("--ecore", metaFile, "The .ecore metamodel")->required();
    xmi->add_option("FILE", modelFiles, "The model files (references may cross them)")->required();
    xmi->callback([] { reporting([] { importXmi(metaFile, modelFiles); }); });
}
