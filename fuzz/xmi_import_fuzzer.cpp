// Feeds arbitrary bytes to the XMI model reader, as a model file would bring them, over a fixed
// metamodel with every kind of feature (containment with an opposite, plain opposites, a reference
// without one, enumerations, many-valued and numeric attributes, defaults). Every input must be
// read or refused with TNImportError, without crashing, leaking, touching freed memory or hanging.
// What is read is frozen and then dropped, so each input starts from an empty model.
#include "sgx/general/SgxException.h"
#include "tarnel/import/TNImport.h"
#include "tarnel/tarnel.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

constexpr const char* metamodelText = R"(<?xml version="1.0" encoding="UTF-8"?>
<ecore:EPackage xmi:version="2.0" xmlns:xmi="http://www.omg.org/XMI"
    xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
    xmlns:ecore="http://www.eclipse.org/emf/2002/Ecore" name="lib" nsURI="http://test/lib" nsPrefix="lib">
  <eClassifiers xsi:type="ecore:EEnum" name="Color">
    <eLiterals name="Red"/><eLiterals name="Green"/><eLiterals name="Blue" literal="bl"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Named" abstract="true">
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="name"
        eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Library" eSuperTypes="#//Named">
    <eStructuralFeatures xsi:type="ecore:EReference" name="books" upperBound="-1" eType="#//Book"
        containment="true" eOpposite="#//Book/library"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="writers" upperBound="-1"
        eType="#//Writer" containment="true"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="sub" upperBound="-1"
        eType="#//Library" containment="true"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Writer" eSuperTypes="#//Named">
    <eStructuralFeatures xsi:type="ecore:EReference" name="books" upperBound="-1" eType="#//Book"
        eOpposite="#//Book/authors"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Book" eSuperTypes="#//Named">
    <eStructuralFeatures xsi:type="ecore:EReference" name="library" eType="#//Library"
        eOpposite="#//Library/books"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="authors" upperBound="-1"
        eType="#//Writer" eOpposite="#//Writer/books"/>
    <eStructuralFeatures xsi:type="ecore:EReference" name="cites" upperBound="-1" eType="#//Book"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="cover" eType="#//Color"
        defaultValueLiteral="Green"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="pages" defaultValueLiteral="1"
        eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EInt"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="price"
        eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EDouble"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="flag"
        eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EBoolean"/>
    <eStructuralFeatures xsi:type="ecore:EAttribute" name="tags" upperBound="-1"
        eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString"/>
  </eClassifiers>
  <eClassifiers xsi:type="ecore:EClass" name="Novel" eSuperTypes="#//Book"/>
</ecore:EPackage>
)";

struct Metamodel {
    TNSchema schema;
    std::unique_ptr<TNEcoreMetamodel> imported;
    Metamodel() {
        const auto file = std::filesystem::temp_directory_path() /
                          ("xmi_import_fuzzer-" + std::to_string(::getpid()) + ".ecore");
        std::ofstream(file) << metamodelText;
        imported = TNEcoreMetamodel::import(schema, file.string());
        std::filesystem::remove(file);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Metamodel* metamodel = new Metamodel; // kept for the process: built once
    TNImportLimits limits;
    limits.maxDepth = 200;
    try {
        TNXmiImporter importer(*metamodel->imported, limits);
        importer.readBuffer(std::string_view(reinterpret_cast<const char*>(data), size),
                            "fuzz.xmi");
        importer.finish();
        metamodel->schema.donePopulating();
    } catch (const TNImportError&) {
        // A clear refusal.
    }
    metamodel->schema.unpopulate();
    return 0;
}
