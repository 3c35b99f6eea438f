#include "tarnel/tarnel.h"

#include "sgx/persistence/Persistence.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace {

template <class T> SgxString versionText(const SgxVersion<T>& v) {
    return std::to_string(v.getMajor()) + "." + std::to_string(v.getMinor()) + " (build kind " +
           std::to_string(v.getBuildKind()) + ")";
}

const char* yesNo(bool b) { return b ? "true" : "false"; }

void showValue(const char* label, const TNValue& v) {
    std::cout << "  " << label << ": asLongInt " << v.asLongInt() << ", asDouble "
              << TNValue(v.asDouble()).asString() << ", asString \"" << v.asString()
              << "\", asBoolean " << yesNo(v.asBoolean()) << "\n";
}

void demo() {
    std::cout << "Versions\n"
              << "  Tarnel " << versionText(Tarnel::getVersion()) << "\n"
              << "  General " << versionText(General::getVersion()) << "\n"
              << "  Persistence " << versionText(Persistence::getVersion()) << "\n\n";

    std::cout << "Conversions\n";
    showValue("TNValue(2.9)", TNValue(2.9));
    showValue("TNValue(-2.9)", TNValue(-2.9));
    showValue("TNValue(\"  42abc\")", TNValue("  42abc"));
    showValue("TNValue(\"True\")", TNValue("True"));
    showValue("TNValue(5000000000L)", TNValue(5000000000L));
    TNValue converted(3);
    converted.setType(TNAttrReal);
    std::cout << "  TNValue(3) after setType(TNAttrReal): \"" << converted.asString() << "\"\n\n";

    std::cout << "Comparisons (the left operand's type decides)\n"
              << "  TNValue(\"10\") == TNValue(10): " << yesNo(TNValue("10") == TNValue(10)) << "\n"
              << "  TNValue(10) == TNValue(\"10abc\"): " << yesNo(TNValue(10) == TNValue("10abc"))
              << "\n"
              << "  TNValue(\"10abc\") == TNValue(10): " << yesNo(TNValue("10abc") == TNValue(10))
              << "\n"
              << "  TNValue() == TNValue(): " << yesNo(TNValue() == TNValue()) << "\n"
              << "  TNValue() < TNValue(): " << yesNo(TNValue() < TNValue()) << "\n\n";

    std::cout << "An exception raised with the \"Throw\" log on\n";
    SgxLogBase& log = SgxException::getLog();
    log.setStream(&std::cout);
    log.enable("Throw");
    try {
        TNException(TNException::Access, TNException::Association, TNException::NameNotFound)
            .setClass1("Part")
            .setAssoc("owner")
            .raise();
    } catch (const TNException& e) {
        std::cout << "Caught TNException; reasonText():\n" << e.reasonText() << "\n";
    }
    log.enable("Throw", false);
    log.setStream(&std::cerr);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"tarnel: typed, navigable models for report generators"};
    app.require_subcommand(1);
    CLI::App* demoCommand = app.add_subcommand("demo", "Show the library at work");
    demoCommand->callback(demo);
    CLI11_PARSE(app, argc, argv);
    return 0;
}
