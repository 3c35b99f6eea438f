// A small model for the navigation and collection tests: class Node (name, size, visibility)
// with the self association "next" (many) <-> "prev", and a subclass Leaf. One model per test:
// the schema's memory regions are shared by the whole process.
#pragma once

#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

struct NodeModel {
    NodeModel() {
        const auto visibility = schema.newEnumType("Visibility");
        visibility->addName("public");
        visibility->addName("private");
        node = schema.newClass("Node");
        node->addAttr("name", TNAttrString, "", "");
        node->addAttr("size", TNAttrInteger, "", "");
        node->addAttr("visibility", TNAttrEnumeration, "Visibility", "");
        leaf = schema.newClass("Leaf");
        node->addChild(leaf);
        node->addAssociation("links", "Node", {0, -1}, {0, -1}, "prev", "next");
    }
    // A new Node (or Leaf) named `name`.
    TNObject* make(const std::string& name, int size = 0, bool isLeaf = false) {
        TNObject& o = *(isLeaf ? leaf : node)->newObject(false);
        o["name"] = name;
        o["size"] = size;
        return &o;
    }
    // from -next-> to, for each target in order.
    void link(TNObject* from, std::initializer_list<TNObject*> targets) {
        for (TNObject* to : targets)
            from->associate(to, "next");
    }

    TNSchema schema;
    SgxSimplePtr<TNClass> node, leaf;
};

// The names of `objects`, blank-separated.
inline std::string names(const TNObjectSequence& objects) {
    std::string text;
    for (const auto& o : objects)
        text += (text.empty() ? "" : " ") + (*o)["name"].asString();
    return text;
}

// x -> x.<attribute>, a new abstraction.
inline TNValueAbsExpr* attributeOf(const char* attribute) {
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    return new TNValueAbsExpr(x, new TNAttrExpr(attribute, x));
}

// Deletes a graph held by `root`, as a host does.
template <class Node> void release(Node* root) { SgxCyclicPtr<Node>(root).takeOwnership(); }
