// The subcommands of the `tarnel` program, one file each; main() adds them to the application.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

class TNSchema;

// `tarnel tags check SCHEMA TAGS`: applies a tagged-value file to a schema file as
// TNTaggedValueApplicator::apply does and lists each line that had no effect, with its reason.
void addTagsCommand(CLI::App& app);

// `tarnel schema dump FILE [--json]`: the classes (parents, children, attributes, associations
// with their ends and multiplicities, compound associations with their chain texts, class
// identifiers) and enumeration types of a schema file.
void addSchemaCommand(CLI::App& app);

// `tarnel import ecore FILE.ecore [--save-schema OUT]`: imports an Ecore metamodel and prints each
// class with its attribute and association counts. `tarnel import xmi --ecore META.ecore FILE...`:
// imports XMI models of it and prints the number of objects per class.
void addImportCommand(CLI::App& app);

// For a command that reads its model from `--ecore META.ecore --xmi FILE...`: imports the
// metamodel into the empty `schema` and the model files into objects of it (references resolved),
// then freezes the schema. Raises TNImportError (an SgxException) naming file, line and column.
void importModels(TNSchema& schema, const std::string& ecore,
                  const std::vector<std::string>& models);

// `tarnel query --demo N|--schema FILE TEXT|--file F [--print]`: compiles a query against the W1
// schema or a schema file (exit status 1 with the error when it does not compile) and, with
// --demo, evaluates it on a W1 model of N objects and prints the result and the times.
void addQueryCommand(CLI::App& app);
