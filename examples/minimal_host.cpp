// A minimal host: builds a metamodel by hand, populates a few objects, freezes the model and
// reads it back by attribute and through two small expression graphs. Run it with no arguments;
// it prints the model.
#include "tarnel/tarnel.h"

#include <iostream>

int main() {
    try {
        TNSchema schema;
        const auto kind = schema.newEnumType("Kind");
        kind->addName("library");
        kind->addName("tool");

        const auto component = schema.newClass("Component");
        component->addAttr("name", TNAttrString, "", "");
        component->addAttr("kind", TNAttrEnumeration, "Kind", "");
        component->addAttr("size", TNAttrInteger, "", "");
        component->addAssociation("uses", "Component", {0, -1}, {0, -1}, "user", "uses");

        const auto make = [&](const char* name, const char* kindName, int size) {
            const auto object = component->newObject(false);
            (*object)["name"] = name;
            (*object)["kind"] = kindName;
            (*object)["size"] = size;
            return object;
        };
        const auto app = make("app", "tool", 120);
        const auto core = make("core", "library", 900);
        const auto util = make("util", "library", 300);
        app->associate(core, "uses");
        app->associate(util, "uses");
        core->associate(util, "uses");
        schema.donePopulating();

        // The names of the components reached from `current` through a role. The two graphs
        // share the variable `current`, so one owner holds both and frees each node once.
        const SgxCyclicPtr<TNObjectVarExpr> current = new TNObjectVarExpr;
        const auto namesThrough = [&](const char* role) {
            const SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
            return new TNMapExpr(
                new TNValueAbsExpr(x, new TNAttrExpr("name", x)),
                new TNAssociationExpr(new TNAssociationTraversal(role, true), current));
        };
        TNExprOwner graphs;
        const TNStringCollectionExpr* uses = graphs.adopt(namesThrough("uses"));
        const TNStringCollectionExpr* usedBy = graphs.adopt(namesThrough("user"));

        for (const auto& object : component->objects()) {
            std::cout << (*object)["name"].asString() << " (" << (*object)["kind"].asString()
                      << ", " << (*object)["size"].asLongInt() << " lines) uses:";
            current->object(object);
            for (const SgxString& name : (*uses)())
                std::cout << ' ' << name;
            std::cout << " | used by:";
            for (const SgxString& name : (*usedBy)())
                std::cout << ' ' << name;
            std::cout << '\n';
        }
        schema.unpopulate();
        return 0;
    } catch (const SgxException& e) {
        std::cerr << e.reasonText() << '\n';
        return 1;
    }
}
