// The three W1 report queries, built from the library's expression nodes, and the same queries
// written in plain C++ over the baseline model, for the demo, the benchmark and the tests.
//
// Q1: the names of all public operations, sorted and joined with ", ".
// Q2: for every class, the number of its public operations (the host sums them).
// Q3: for each top package (a subpackage of the root package, the model's root object), the
//     number of classes in it at any depth, through the compound association "All Classes".
//
// Header-only, like w1_model.h.
#pragma once

#include "w1/w1_model.h"
#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNExprCheck.h"
#include "tarnel/expressions/TNExprOwner.h"
#include "tarnel/navigation/TNBuiltinAssociations.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <vector>

namespace w1 {

// The chain of "All Classes" over W1's role names: a package's classes and, recursively, those of
// its subpackages.
inline constexpr const char* allClassesSource = "top: [] -> ( [subpackages] -> @top; [classes] )";

// Defines "All Classes" on the schema's Package class (call once, before the queries run).
inline void defineAllClasses(TNSchema& schema) {
    tnAddCompoundAssociation(*schema.getClass("Package"), "<Package:All Classes>", "All Classes",
                             schema.getClass("Class"), allClassesSource);
}

// The three queries as expression graphs over one input variable: any object of the model. The
// graphs are built once and evaluated any number of times; they are deleted with this object.
class Reports {
public:
    Reports() {
        m_q1 = m_graphs.adopt(buildQ1());
        m_q2 = m_graphs.adopt(buildQ2());
        m_q3 = m_graphs.adopt(buildQ3());
    }
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    // Q1: the joined names.
    SgxString q1(TNObject* anyObject) const {
        m_input->object(anyObject);
        return (*m_q1)().asString();
    }
    // Q2: the public operations of every class, summed.
    int64_t q2(TNObject* anyObject) const {
        m_input->object(anyObject);
        return sum((*m_q2)());
    }
    // Q3: the classes below each top package, summed.
    int64_t q3(TNObject* anyObject) const {
        m_input->object(anyObject);
        return sum((*m_q3)());
    }
    // What tnCheckExpression finds in the three graphs against `schema`, the input variable
    // being the host's parameter: nothing for the W1 metamodel with "All Classes" defined.
    std::vector<TNExprProblem> check(const TNSchema& schema) const {
        std::vector<TNExprProblem> problems;
        for (const SgxCyclicPtrBody* graph : {static_cast<const SgxCyclicPtrBody*>(m_q1),
                                              static_cast<const SgxCyclicPtrBody*>(m_q2),
                                              static_cast<const SgxCyclicPtrBody*>(m_q3)}) {
            std::vector<TNExprProblem> found = tnCheckExpression(schema, graph, {m_input});
            problems.insert(problems.end(), found.begin(), found.end());
        }
        return problems;
    }

private:
    using ObjectVar = SgxCyclicPtr<TNObjectVarExpr>;

    static int64_t sum(const TNStringSequence& counts) {
        int64_t total = 0;
        for (const SgxString& count : counts) {
            int64_t n = 0;
            std::from_chars(count.data(), count.data() + count.size(), n);
            total += n;
        }
        return total;
    }

    // x -> x.visibility == "public"
    static TNValueAbsExpr* isPublic() {
        ObjectVar x = new TNObjectVarExpr;
        return new TNValueAbsExpr(x, new TNRelationalExpr(new TNAttrExpr("visibility", x),
                                                          TNRelationalExpr::TNEqual,
                                                          new TNConstantExpr("public")));
    }
    // x -> x.name
    static TNValueAbsExpr* nameOf() {
        ObjectVar x = new TNObjectVarExpr;
        return new TNValueAbsExpr(x, new TNAttrExpr("name", x));
    }

    // The worked example: all Operations, public ones, sorted by name, names joined by ", ".
    TNValueExpr* buildQ1() {
        auto* all = new TNAllInstancesExpr("Operation", m_input);
        auto* sorted = new TNSortExpr;
        sorted->collection(new TNFilterExpr(isPublic(), all));
        sorted->key(nameOf(), true);
        return new TNDelimiterExpr(new TNConstantExpr(", "), new TNMapExpr(nameOf(), sorted));
    }

    // Every Class mapped to count(filter(public, [operations] from it)).
    TNStringCollectionExpr* buildQ2() {
        ObjectVar c = new TNObjectVarExpr;
        auto* operations = new TNAssociationExpr(new TNAssociationTraversal("operations", true), c);
        auto* count =
            new TNValueAbsExpr(c, new TNCountExpr(new TNFilterExpr(isPublic(), operations)));
        return new TNMapExpr(count, new TNAllInstancesExpr("Class", m_input));
    }

    // Each subpackage of the model's root (the root package) mapped to count([All Classes] from
    // it).
    TNStringCollectionExpr* buildQ3() {
        auto* tops = new TNAssociationExpr(new TNAssociationTraversal("subpackages", true),
                                           new TNModelExpr(m_input));
        ObjectVar p = new TNObjectVarExpr;
        auto* allClasses =
            new TNAssociationExpr(new TNAssociationTraversal("All Classes", true), p);
        return new TNMapExpr(new TNValueAbsExpr(p, new TNCountExpr(allClasses)), tops);
    }

    // The input variable is shared by the three graphs: one owner frees them together, and
    // each node once.
    ObjectVar m_input = new TNObjectVarExpr;
    TNExprOwner m_graphs;
    TNValueExpr* m_q1 = nullptr;
    TNStringCollectionExpr* m_q2 = nullptr;
    TNStringCollectionExpr* m_q3 = nullptr;
};

namespace baseline {

// The same three queries in plain C++.
inline std::string q1(const Model& model) {
    std::vector<const Operation*> selected;
    for (const Operation& op : model.operations)
        if (op.visibility == 0)
            selected.push_back(&op);
    std::sort(selected.begin(), selected.end(),
              [](const Operation* a, const Operation* b) { return a->name < b->name; });
    std::string joined;
    for (size_t i = 0; i < selected.size(); ++i) {
        if (i > 0)
            joined += ", ";
        joined += selected[i]->name;
    }
    return joined;
}

inline int64_t q2(const Model& model) {
    int64_t total = 0;
    for (const Class& cls : model.classes)
        for (const Operation* op : cls.operations)
            total += op->visibility == 0 ? 1 : 0;
    return total;
}

inline int64_t classesBelow(const Package& package) {
    int64_t count = static_cast<int64_t>(package.classes.size());
    for (const Package* sub : package.subpackages)
        count += classesBelow(*sub);
    return count;
}

inline int64_t q3(const Model& model) {
    int64_t total = 0;
    for (const Package* top : model.packages.front().subpackages)
        total += classesBelow(*top);
    return total;
}

} // namespace baseline
} // namespace w1
