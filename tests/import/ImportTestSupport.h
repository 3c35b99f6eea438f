// Helpers shared by the importer tests: a scratch folder of files, and the import error a call
// raised.
#pragma once

#include "tarnel/import/TNImport.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/tarnel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

// A folder of its own under the system's temporary folder, removed with the object.
class ScratchDir {
public:
    ScratchDir() {
        static std::atomic<int> counter{0};
        m_path = std::filesystem::temp_directory_path() /
                 ("tarnel-import-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::create_directories(m_path);
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    std::string write(const std::string& name, const std::string& text) const {
        const auto file = m_path / name;
        std::ofstream(file, std::ios::binary) << text;
        return file.string();
    }
    std::string path(const std::string& name) const { return (m_path / name).string(); }
    const std::filesystem::path& dir() const { return m_path; }

private:
    std::filesystem::path m_path;
};

// The TNImportError `f` raised, or nothing (after recording a failure).
template <class F> std::optional<TNImportError> raisedImport(F&& f) {
    return raisedAs<TNImportError>(std::forward<F>(f));
}

// An .ecore file of one package around `body`.
inline std::string ecorePackage(const std::string& name, const std::string& body) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<ecore:EPackage xmi:version="2.0" xmlns:xmi="http://www.omg.org/XMI"
    xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
    xmlns:ecore="http://www.eclipse.org/emf/2002/Ecore" name=")" +
           name + R"(" nsURI="http://test/)" + name + R"(" nsPrefix=")" + name + R"(">
)" + body + "</ecore:EPackage>\n";
}
