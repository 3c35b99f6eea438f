#include "tarnel/tarnel.h"

#include <CLI/CLI.hpp>

#include <iostream>

int main(int argc, char** argv) {
    CLI::App app{"tarnel: typed, navigable models for report generators"};
    app.require_subcommand(1);
    CLI::App* demo = app.add_subcommand("demo", "Show the library at work");
    demo->callback([] { std::cout << "tarnel demo\n"; });
    CLI11_PARSE(app, argc, argv);
    return 0;
}
