#include "tarnel/navigation/TNBuiltinAssociations.h"

#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNTraversalParser.h"

#include <memory>

SgxSimplePtr<TNCompoundAssociation>
tnAddCompoundAssociation(TNClass& owner, const SgxString& name, const SgxString& roleName,
                         const SgxSimplePtr<TNClass>& resultClass, std::string_view source) {
    auto assoc = std::make_unique<TNCompoundAssociation>();
    // The data record owns the graph from here on, also when adding fails below.
    assoc->setAssociationTraversal(tnParseTraversal(source));
    assoc->setTraversalSource(SgxString(source));
    assoc->setName(name);
    assoc->setOtherRoleName(roleName);
    assoc->setFirstClass(&owner);
    assoc->setSecondClass(resultClass);
    SgxSimplePtr<TNCompoundAssociation> added(assoc.get());
    owner.addCompoundAssociation(added);
    assoc.release();
    return added;
}

size_t tnRegisterBuiltinAssociations(TNSchema& schema) {
    size_t added = 0;
    for (const TNBuiltinAssociation& builtin : tnBuiltinAssociations) {
        const SgxString owner(builtin.owner);
        const SgxString result(builtin.resultClass);
        if (!schema.classExists(owner) || !schema.classExists(result))
            continue;
        TNClass& cls = *schema.getClass(owner);
        if (cls.associationExists(builtin.roleName))
            continue;
        tnAddCompoundAssociation(cls, SgxString(builtin.name), SgxString(builtin.roleName),
                                 schema.getClass(result), builtin.source);
        ++added;
    }
    return added;
}
