// The subcommands of the `tarnel` program, one file each; main() adds them to the application.
#pragma once

#include <CLI/CLI.hpp>

// `tarnel tags check SCHEMA TAGS`: applies a tagged-value file to a schema file as
// TNTaggedValueApplicator::apply does and lists each line that had no effect, with its reason.
void addTagsCommand(CLI::App& app);

// `tarnel schema dump FILE [--json]`: the classes (parents, children, attributes, associations
// with their ends and multiplicities, compound associations with their chain texts, class
// identifiers) and enumeration types of a schema file.
void addSchemaCommand(CLI::App& app);
