// Importing workload W1 from XMI beside populating it from C++, at 100,000 and 1,000,000 objects.
// The program writes the W1 metamodel as a .ecore file and the model as an XMI file (packages
// nesting their subpackages and classes, classes their operations and attributes, every value an
// XML attribute), then, in the same process, populates the W1 schema from C++ (the W1 sink) and
// imports the files into a schema of their own.
//
// Counters, per object: populate_ns (C++), import_ns (reading the XMI file, references resolved),
// the ratio import/populate, the resident-set growth of each from before it to after the model
// is frozen (populate_rss_B, import_rss_B) and the peak of the resident set over that time, less
// where it started (populate_peak_B, import_peak_B). file_B is the XMI file's size per object.
#include "tarnel/import/TNImport.h"
#include "w1/w1_model.h"

#include <benchmark/benchmark.h>

#include "bench_process.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using bench::Clock;
using bench::nanoseconds;
using bench::peakBytes;
using bench::resetPeak;
using bench::residentBytes;
constexpr const char* w1Ecore = R"(<?xml version="1.0" encoding="UTF-8"?>
<ecore:EPackage xmi:version="2.0" xmlns:xmi="http://www.omg.org/XMI"
    xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
    xmlns:ecore="http://www.eclipse.org/emf/2002/Ecore" name="w1" nsURI="http://tarnel/w1" nsPrefix="w1">
  <eClassifiers xsi:type="ecore:EEnum" name="Visibility">
    <eLiterals name="public"/><eLiterals name="protected"/><eLiterals name="private"/><eLiterals name="implementation"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Element">
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="name" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="quid" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="documentation" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="stereotype" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="visibility" eType="#//Visibility"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="isAbstract" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EBoolean"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="order" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EInt"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="weight" eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EDouble"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Package" eSuperTypes="#//Element">
    <eStructuralFeatures xsi:type="ecore:EReference" name="subpackages" upperBound="-1" eType="#//Package" containment="true" eOpposite="#//Package/parent"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="parent" eType="#//Package" eOpposite="#//Package/subpackages"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="classes" upperBound="-1" eType="#//Class" containment="true" eOpposite="#//Class/package"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Class" eSuperTypes="#//Element">
    <eStructuralFeatures xsi:type="ecore:EReference" name="package" lowerBound="1" eType="#//Package" eOpposite="#//Package/classes"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="operations" upperBound="-1" eType="#//Operation" containment="true" eOpposite="#//Operation/owner"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="attributes" upperBound="-1" eType="#//Attribute" containment="true" eOpposite="#//Attribute/owner"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Operation" eSuperTypes="#//Element">
    <eStructuralFeatures xsi:type="ecore:EReference" name="owner" lowerBound="1" eType="#//Class" eOpposite="#//Class/operations"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Attribute" eSuperTypes="#//Element">
    <eStructuralFeatures xsi:type="ecore:EReference" name="owner" lowerBound="1" eType="#//Class" eOpposite="#//Class/attributes"/>
  </eClassifiers>
</ecore:EPackage>
)";

// Writes the W1 model of size n as XMI, with the values w1::generate gives: object k of a kind
// and global creation index g (packages first, then each class followed by its 6 operations
// and 3 attributes) are computed here rather than recorded, so the writer holds no model.
class XmiWriter {
public:
    XmiWriter(const std::string& path, size_t n)
        : m_out(path, std::ios::binary), m_classes(n / 10) {}

    void write() {
        m_out << R"(<?xml version="1.0" encoding="UTF-8"?>)"
              << "\n";
        package(0, "w1:Package", true);
    }

private:
    static constexpr const char* literals[] = {"public", "protected", "private", "implementation"};

    void open(const char* tag, const char* kind, uint64_t k, uint64_t global, bool root = false) {
        m_line.clear();
        m_line += '<';
        m_line += tag;
        if (root)
            m_line += R"( xmlns:xmi="http://www.omg.org/XMI" xmlns:w1="http://tarnel/w1")";
        append(" name=\"", kind, k);
        append("\" quid=\"Q", "", global);
        m_line += '"';
        if (k % 5 == 0)
            (m_line += " documentation=\"") += w1::lorem, m_line += '"';
        if (k % 10 == 3)
            m_line += " stereotype=\"entity\"";
        (m_line += " visibility=\"") += literals[k % 4];
        m_line += k % 7 == 0 ? "\" isAbstract=\"true\"" : "\" isAbstract=\"false\"";
        append(" order=\"", "", k);
        m_line += "\" weight=\"";
        char buffer[32];
        m_line.append(buffer, std::to_chars(buffer, buffer + 32, static_cast<double>(k) * 0.5).ptr);
        m_line += '"';
        m_out << m_line;
    }

    void append(const char* before, const char* prefix, uint64_t number) {
        char buffer[24];
        ((m_line += before) += prefix)
            .append(buffer, std::to_chars(buffer, buffer + 24, number).ptr);
    }

    // Package p (creation index p): root 0, top packages 1..10, subpackages 11.. under them.
    void package(size_t p, const char* tag, bool root = false) {
        open(tag, "Package_", p, p, root);
        m_out << ">\n";
        if (p == 0)
            for (size_t top = 1; top <= 10; ++top)
                package(top, "subpackages");
        else if (p <= 10)
            for (size_t sub = 0; sub < 10; ++sub)
                package(11 + (p - 1) * 10 + sub, "subpackages");
        for (size_t i = p; i < m_classes; i += w1::packageCount) {
            const uint64_t g = w1::packageCount + i * 10;
            open("classes", "Class_", i, g);
            m_out << ">\n";
            for (size_t j = 0; j < w1::operationsPerClass; ++j) {
                open("operations", "Operation_", i * 6 + j, g + 1 + j);
                m_out << "/>\n";
            }
            for (size_t j = 0; j < w1::attributesPerClass; ++j) {
                open("attributes", "Attribute_", i * 3 + j, g + 7 + j);
                m_out << "/>\n";
            }
            m_out << "</classes>\n";
        }
        m_out << "</" << tag << ">\n";
    }

    std::ofstream m_out;
    size_t m_classes;
    std::string m_line;
};

void XmiImport(benchmark::State& state) {
    const auto n = static_cast<size_t>(state.range(0));
    const std::filesystem::path dir =
        std::filesystem::temp_directory_path() / ("tarnel-xmi-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    const std::string ecore = (dir / "w1.ecore").string();
    const std::string xmi = (dir / "w1.xmi").string();
    std::ofstream(ecore) << w1Ecore;
    XmiWriter(xmi, n).write();
    const double objects = static_cast<double>(w1::objectCount(n));
    // Each system first runs once untimed (the process's first touch of memory costs extra,
    // which whichever ran first would pay), then three timed runs each; medians are reported.
    std::vector<double> populateNs, importNs, populateRss, importRss, populatePeak, importPeak;
    for (auto _ : state) {
        for (int run = 0; run < 4; ++run) {
            TNSchema schema;
            w1::TarnelModel model(schema);
            const double before = residentBytes();
            resetPeak();
            const Clock::time_point start = Clock::now();
            w1::generate(model, n);
            const double ns = nanoseconds(start, Clock::now());
            schema.donePopulating();
            if (run > 0) {
                populateNs.push_back(ns);
                populatePeak.push_back(peakBytes() - before);
                populateRss.push_back(residentBytes() - before);
            }
            schema.unpopulate();
        }
        for (int run = 0; run < 4; ++run) {
            TNSchema schema;
            const auto metamodel = TNEcoreMetamodel::import(schema, ecore);
            const double before = residentBytes();
            resetPeak();
            const Clock::time_point start = Clock::now();
            TNXmiImporter importer(*metamodel);
            importer.read(xmi);
            importer.finish();
            const double ns = nanoseconds(start, Clock::now());
            schema.donePopulating();
            if (run > 0) {
                importNs.push_back(ns);
                importPeak.push_back(peakBytes() - before);
                importRss.push_back(residentBytes() - before);
            }
            if (importer.objectCount() != w1::objectCount(n))
                state.SkipWithError("the import made another number of objects");
            schema.unpopulate();
        }
    }
    const auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    state.counters["populate_ns"] = median(populateNs) / objects;
    state.counters["import_ns"] = median(importNs) / objects;
    state.counters["import/populate"] = median(importNs) / median(populateNs);
    state.counters["populate_rss_B"] = median(populateRss) / objects;
    state.counters["import_rss_B"] = median(importRss) / objects;
    state.counters["populate_peak_B"] = median(populatePeak) / objects;
    state.counters["import_peak_B"] = median(importPeak) / objects;
    state.counters["file_B"] = static_cast<double>(std::filesystem::file_size(xmi)) / objects;
    std::filesystem::remove_all(dir);
}

BENCHMARK(XmiImport)->Arg(100000)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
