// `tarnel schema dump FILE [--json]`: what a schema file holds, as text to read or as JSON.
#include "commands.h"

#include "tarnel/tarnel.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>
#include <string>

namespace {

std::string kindName(const TNAttrDesc& desc) {
    switch (desc.type()) {
    case TNAttrEnumeration:
        return "enumeration";
    case TNAttrInteger:
        return "integer";
    case TNAttrReal:
        return "real";
    case TNAttrString:
        return "string";
    case TNAttrBoolean:
        return "boolean";
    case TNAttrLong:
        return "long";
    }
    return "kind " + std::to_string(static_cast<unsigned>(desc.type()));
}

std::string nameOf(const SgxSimplePtr<TNClass>& cls) { return cls.isNull() ? "" : cls->name(); }

std::vector<std::string> namesOf(const std::vector<SgxSimplePtr<TNClass>>& classes) {
    std::vector<std::string> names;
    for (const auto& cls : classes)
        names.push_back(cls->name());
    return names;
}

std::string sourceOf(const TNAssociation& assoc) {
    const auto* compound = dynamic_cast<const TNCompoundAssociation*>(&assoc);
    return compound == nullptr ? "" : compound->traversalSource();
}

// Members keep the order in which they are put, as the text form has it.
nlohmann::ordered_json toJson(const TNSchema& schema) {
    using json = nlohmann::ordered_json;
    json enums = json::array();
    for (const auto& type : schema.enums())
        enums.push_back({{"name", type->name()}, {"literals", type->values()}});
    json classes = json::array();
    for (const auto& cls : schema.classes()) {
        json attributes = json::array();
        for (const auto& desc : cls->attributes()) {
            json attr = {{"name", desc->name()},
                         {"type", kindName(*desc)},
                         {"typeWord", desc->typeWord()},
                         {"origin", desc->originClass()}};
            if (!desc->enumType().isNull())
                attr["enumeration"] = desc->enumType()->name();
            attributes.push_back(attr);
        }
        json associations = json::array();
        for (const auto& assoc : cls->associations()) {
            json end = {{"name", assoc->name()},
                        {"role", assoc->otherRoleName()},
                        {"reverseRole", assoc->roleName()},
                        {"firstClass", nameOf(assoc->firstClass())},
                        {"otherClass", nameOf(assoc->otherClass())},
                        {"multiplicity",
                         {assoc->myMultiplicity().first(), assoc->myMultiplicity().second()}},
                        {"otherMultiplicity",
                         {assoc->otherMultiplicity().first(), assoc->otherMultiplicity().second()}},
                        {"flags", assoc->flags()},
                        {"compound", !assoc->isSimple()}};
            if (!assoc->isSimple())
                end["source"] = sourceOf(*assoc);
            associations.push_back(end);
        }
        const auto identifier = cls->classIdentifier();
        classes.push_back(
            {{"name", cls->name()},
             {"flags", cls->flags()},
             {"parents", namesOf(cls->parents())},
             {"children", namesOf(cls->children())},
             {"identifier",
              identifier.isNull() ? std::vector<SgxString>() : identifier->attributes()},
             {"attributes", attributes},
             {"associations", associations}});
    }
    return {{"version", schema.version()}, {"enumerations", enums}, {"classes", classes}};
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "(none)" : text;
}

void printText(const TNSchema& schema, std::ostream& out) {
    out << "schema version " << schema.version() << ": " << schema.classCount() << " classes, "
        << schema.enumCount() << " enumeration types\n";
    for (const auto& type : schema.enums())
        out << "enumeration " << type->name() << ": " << joined(type->values()) << '\n';
    for (const auto& cls : schema.classes()) {
        out << "\nclass " << cls->name() << (cls->isDiagram() ? " (diagram)" : "") << '\n'
            << "  parents: " << joined(namesOf(cls->parents())) << '\n'
            << "  children: " << joined(namesOf(cls->children())) << '\n';
        if (!cls->classIdentifier().isNull())
            out << "  identifier: " << joined(cls->classIdentifier()->attributes()) << '\n';
        for (const auto& desc : cls->attributes()) {
            out << "  attribute " << desc->name() << ": " << kindName(*desc);
            if (!desc->enumType().isNull())
                out << ' ' << desc->enumType()->name();
            if (desc->originClass() != cls->name())
                out << " (from " << desc->originClass() << ')';
            out << '\n';
        }
        for (const auto& assoc : cls->associations()) {
            const TNMultiplicity mine = assoc->myMultiplicity();
            const TNMultiplicity other = assoc->otherMultiplicity();
            out << "  " << (assoc->isSimple() ? "association " : "compound association ")
                << assoc->otherRoleName() << " -> " << nameOf(assoc->otherClass()) << " ("
                << assoc->name()
                << (assoc->roleName().empty() ? "" : "; reverse role " + assoc->roleName())
                << "; multiplicities "
                << mine.first() << ',' << mine.second() << " / " << other.first() << ','
                << other.second() << ')';
            if (!assoc->isSimple())
                out << ": " << sourceOf(*assoc);
            out << '\n';
        }
    }
}

} // namespace

void addSchemaCommand(CLI::App& app) {
    CLI::App* schema = app.add_subcommand("schema", "Schema files");
    schema->require_subcommand(1);
    CLI::App* dump = schema->add_subcommand(
        "dump", "Print the classes and enumeration types of a schema file; exit status 2 when it "
                "cannot be read");
    auto file = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    dump->add_option("FILE", *file, "Schema file")->required();
    dump->add_flag("--json", *json, "Print JSON instead of text");
    dump->callback([file, json] {
        std::unique_ptr<TNSchema> loaded;
        try {
            loaded.reset(TNSchema::load(*file).get());
        } catch (const std::exception& e) {
            std::cerr << "tarnel schema dump: " << e.what() << "\n";
            throw CLI::RuntimeError(2);
        }
        if (*json)
            std::cout << toJson(*loaded).dump(2) << '\n';
        else
            printText(*loaded, std::cout);
    });
}
