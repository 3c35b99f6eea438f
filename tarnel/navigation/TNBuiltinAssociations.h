// The compound associations the library defines itself, as constant data, and the calls that
// put compound associations on a schema's classes from their chain texts (TNTraversalParser.h).
//
// Ownership: the classes own the associations added to them; each association's shared data
// owns its traversal graph.
#pragma once

#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "tarnel/tarnel_export.h"

#include <array>
#include <cstddef>
#include <string_view>

class TNClass;
class TNCompoundAssociation;
class TNSchema;

// One built-in definition: the class it is defined on, its name and the role name objects of
// that class navigate it by, the class of the objects it yields, the associations its chain uses
// as the definition lists them, and the chain text.
struct TNBuiltinAssociation {
    std::string_view owner;
    std::string_view name;
    std::string_view roleName;
    std::string_view resultClass;
    std::array<std::string_view, 2> chainAssociations; // unused entries empty
    std::string_view source;
};

// The built-in definitions, exactly as they have always read. "supercase" lists "supertype"
// among its chain associations while its text follows [subtype], as "subcase" does: both texts
// are kept as they stand.
inline constexpr std::array<TNBuiltinAssociation, 20> tnBuiltinAssociations{{
    {"Class",
     "<Class:baseClass>",
     "baseClass",
     "Class",
     {"generalization", "supertype"},
     "[generalization] -> [supertype] { class current = \"Class\" }"},
    {"Class",
     "<Class:derivedClass>",
     "derivedClass",
     "Class",
     {"specialization", "subtype"},
     "[specialization] -> [subtype] { class current = \"Class\" }"},
    {"Package",
     "<Package:model>",
     "model",
     "Model",
     {"modelUCV", "modelLV"},
     "[] -> ( [modelUCV]; [modelLV] )"},
    {"Diagram",
     "<Diagram:useCase>",
     "useCase",
     "UseCase",
     {"useCaseA", "useCaseB"},
     "[] -> ( [useCaseA]; [useCaseB] )"},
    {"Package",
     "<Package:classes>",
     "classes",
     "Class",
     {"logicalModel", ""},
     "[logicalModel] { class current = \"Class\" }"},
    {"Package",
     "<Package:useCases>",
     "useCases",
     "UseCase",
     {"logicalModel", ""},
     "[logicalModel] { class current = \"UseCase\" }"},
    {"Package",
     "<Package:subpackages>",
     "subpackages",
     "Package",
     {"logicalModel", ""},
     "[logicalModel] { class current = \"Package\" }"},
    {"Package",
     "<Package:All Classes>",
     "All Classes",
     "Class",
     {"subpackages", "classes"},
     "top: [] -> ( [subpackages] -> @top; [classes] )"},
    {"Package",
     "<Package:All Use Cases>",
     "All Use Cases",
     "UseCase",
     {"subpackages", "useCases"},
     "top: [] -> ( [subpackages] -> @top; [useCases] )"},
    {"Package",
     "<Package:All Subpackages>",
     "All Subpackages",
     "Package",
     {"subpackages", ""},
     "top: [] -> [subpackages] -> @top"},
    {"Subsystem",
     "<Subsystem:subsubsystems>",
     "subsubsystems",
     "Subsystem",
     {"physicalModel", ""},
     "[physicalModel] { class current = \"Subsystem\" }"},
    {"Subsystem",
     "<Subsystem:modules>",
     "modules",
     "Module",
     {"physicalModel", ""},
     "[physicalModel] { class current = \"Module\" }"},
    {"Role",
     "<Role:class>",
     "class",
     "Class",
     {"supplier", ""},
     "[supplier] { class current = \"Class\" }"},
    {"Role",
     "<Role:useCase>",
     "useCase",
     "UseCase",
     {"supplier", ""},
     "[supplier] { class current = \"UseCase\" }"},
    {"InheritanceRelationship",
     "<InheritanceRelationship:subclass>",
     "subclass",
     "Class",
     {"subtype", ""},
     "[subtype] { class current = \"Class\" }"},
    {"InheritanceRelationship",
     "<InheritanceRelationship:superclass>",
     "superclass",
     "Class",
     {"supertype", ""},
     "[supertype] { class current = \"Class\" }"},
    {"InheritanceRelationship",
     "<InheritanceRelationship:subcase>",
     "subcase",
     "UseCase",
     {"subtype", ""},
     "[subtype] { class current = \"UseCase\" }"},
    {"InheritanceRelationship",
     "<InheritanceRelationship:supercase>",
     "supercase",
     "UseCase",
     {"supertype", ""},
     "[subtype] { class current = \"UseCase\" }"},
    {"DeploymentPackage",
     "<DeploymentPackage:processors>",
     "processors",
     "Processor",
     {"deploymentModel", ""},
     "[deploymentModel] { class current = \"Processor\" }"},
    {"DeploymentPackage",
     "<DeploymentPackage:devices>",
     "devices",
     "Device",
     {"deploymentModel", ""},
     "[deploymentModel] { class current = \"Device\" }"},
}};

// Defines a compound association on `owner` (which owns it from then on and hands it down to
// its subclasses) named `name`, navigated by role `roleName`, yielding objects of `resultClass`,
// computed by the chain `source` (parsed by tnParseTraversal). Returns it (borrowed). Raises
// what tnParseTraversal raises for a malformed text, and what TNClass::addCompoundAssociation
// raises (DuplicateName when `owner` declares that role name itself); nothing is added then.
TARNEL_API SgxSimplePtr<TNCompoundAssociation>
tnAddCompoundAssociation(TNClass& owner, const SgxString& name, const SgxString& roleName,
                         const SgxSimplePtr<TNClass>& resultClass, std::string_view source);

// Adds to `schema` every built-in definition whose owner class and result class it has, unless
// the owner class already has an association of that role name (a model's own association wins
// over the built-in of the same role). Returns how many were added.
TARNEL_API size_t tnRegisterBuiltinAssociations(TNSchema& schema);
