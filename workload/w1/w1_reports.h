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

// R1 to R6 in plain C++, the counterparts of ShapeReports.

// R1: Operations whose name contains "_12" and whose weight is above 100.0.
inline int64_t r1(const Model& model) {
    int64_t total = 0;
    for (const Operation& op : model.operations)
        total += op.name.find("_12") != std::string::npos && op.weight > 100.0 ? 1 : 0;
    return total;
}

// R2: Attributes of each package's classes whose stereotype is "entity", summed over packages.
inline int64_t r2(const Model& model) {
    int64_t total = 0;
    for (const Package& package : model.packages)
        for (const Class* cls : package.classes)
            for (const Attribute* attr : cls->attributes)
                total += attr->stereotype == "entity" ? 1 : 0;
    return total;
}

// R3: every Class by isAbstract descending, then order descending; quids joined by ", ".
inline std::string r3(const Model& model) {
    std::vector<const Class*> sorted;
    sorted.reserve(model.classes.size());
    for (const Class& cls : model.classes)
        sorted.push_back(&cls);
    std::sort(sorted.begin(), sorted.end(), [](const Class* a, const Class* b) {
        return a->isAbstract != b->isAbstract ? a->isAbstract : a->order > b->order;
    });
    std::string joined;
    for (size_t i = 0; i < sorted.size(); ++i) {
        if (i > 0)
            joined += ", ";
        joined += sorted[i]->quid;
    }
    return joined;
}

// R4: Operations whose owning Class is abstract.
inline int64_t r4(const Model& model) {
    int64_t total = 0;
    for (const Operation& op : model.operations)
        total += op.owner->isAbstract ? 1 : 0;
    return total;
}

// R5: Packages with some documented class, all of whose classes have order below 50,000.
inline int64_t r5(const Model& model) {
    int64_t total = 0;
    for (const Package& package : model.packages) {
        const auto& classes = package.classes;
        const bool someDocumented = std::any_of(classes.begin(), classes.end(), [](const Class* c) {
            return !c->documentation.empty();
        });
        const bool allEarly = std::all_of(classes.begin(), classes.end(),
                                          [](const Class* c) { return c->order < 50000; });
        total += someDocumented && allEarly ? 1 : 0;
    }
    return total;
}

// R6: name@owner-name of every Attribute, joined by "; ".
inline std::string r6(const Model& model) {
    std::string joined;
    bool first = true;
    for (const Attribute& attr : model.attributes) {
        if (!first)
            joined += "; ";
        first = false;
        joined += attr.name;
        joined += '@';
        joined += attr.owner->name;
    }
    return joined;
}

} // namespace baseline

// R1 to R6, the shapes a report author writes after Q1 to Q3, each as one graph of the nodes an
// author would reach for, over one input variable (any object of the model). Built once,
// evaluated any number of times, freed with this object.
class ShapeReports {
public:
    ShapeReports() {
        m_r1 = m_graphs.adopt(buildR1());
        m_r2 = m_graphs.adopt(buildR2());
        m_r3 = m_graphs.adopt(buildR3());
        m_r4 = m_graphs.adopt(buildR4());
        m_r5 = m_graphs.adopt(buildR5());
        m_r6 = m_graphs.adopt(buildR6());
    }
    ShapeReports(const ShapeReports&) = delete;
    ShapeReports& operator=(const ShapeReports&) = delete;

    // The counts of R1, R2 (summed over packages), R4 and R5; the joined texts of R3 and R6.
    int64_t r1(TNObject* anyObject) const { return count(*m_r1, anyObject); }
    int64_t r2(TNObject* anyObject) const {
        m_input->object(anyObject);
        int64_t total = 0;
        for (const SgxString& count : (*m_r2)())
            total += std::stoll(count);
        return total;
    }
    SgxString r3(TNObject* anyObject) const { return text(*m_r3, anyObject); }
    int64_t r4(TNObject* anyObject) const { return count(*m_r4, anyObject); }
    int64_t r5(TNObject* anyObject) const { return count(*m_r5, anyObject); }
    SgxString r6(TNObject* anyObject) const { return text(*m_r6, anyObject); }

private:
    using ObjectVar = SgxCyclicPtr<TNObjectVarExpr>;

    int64_t count(const TNValueExpr& root, TNObject* anyObject) const {
        m_input->object(anyObject);
        return root().asLongInt();
    }
    SgxString text(const TNValueExpr& root, TNObject* anyObject) const {
        m_input->object(anyObject);
        return root().asString();
    }
    TNAllInstancesExpr* all(const char* kind) const {
        return new TNAllInstancesExpr(kind, m_input);
    }
    // The objects one role away from `object`.
    static TNAssociationExpr* linked(const char* role, const TNObjectExprPtr& object) {
        return new TNAssociationExpr(new TNAssociationTraversal(role, true), object);
    }
    // The one object one role away from `object` (an owner).
    static TNObjectExtractionExpr* single(const char* role, const TNObjectExprPtr& object) {
        return new TNObjectExtractionExpr(linked(role, object));
    }

    // count(Operation o where o.name matches "_12" and o.weight > 100.0)
    TNValueExpr* buildR1() const {
        ObjectVar o = new TNObjectVarExpr;
        auto* named = new TNRegExpMatchExpr(new TNConstantExpr("_12"), new TNAttrExpr("name", o));
        auto* heavy = new TNRelationalExpr(new TNAttrExpr("weight", o), TNRelationalExpr::TNGreater,
                                           new TNConstantExpr(TNValue(100.0)));
        auto* test = new TNValueAbsExpr(o, new TNBooleanExpr(named, TNBooleanExpr::TNAnd, heavy));
        return new TNCountExpr(new TNFilterExpr(test, all("Operation")));
    }

    // Package p -> count(Attribute a of [classes] -> [attributes] of p where a.stereotype ==
    // "entity")
    TNStringCollectionExpr* buildR2() const {
        ObjectVar p = new TNObjectVarExpr;
        ObjectVar a = new TNObjectVarExpr;
        auto* chain = new TNAssociationTraversal("classes", false);
        chain->setChild(new TNAssociationTraversal("attributes", true));
        auto* entity = new TNValueAbsExpr(a, new TNRelationalExpr(new TNAttrExpr("stereotype", a),
                                                                  TNRelationalExpr::TNEqual,
                                                                  new TNConstantExpr("entity")));
        auto* counted = new TNCountExpr(new TNFilterExpr(entity, new TNAssociationExpr(chain, p)));
        return new TNMapExpr(new TNValueAbsExpr(p, counted), all("Package"));
    }

    // join(", ", quid of each Class sorted by isAbstract descending, then order descending)
    TNValueExpr* buildR3() const {
        ObjectVar x = new TNObjectVarExpr;
        ObjectVar y = new TNObjectVarExpr;
        ObjectVar z = new TNObjectVarExpr;
        auto* sorted = new TNSortExpr;
        sorted->collection(all("Class"));
        sorted->key(new TNValueAbsExpr(x, new TNAttrExpr("isAbstract", x)), false);
        sorted->key(new TNValueAbsExpr(y, new TNAttrExpr("order", y)), false);
        auto* quids = new TNMapExpr(new TNValueAbsExpr(z, new TNAttrExpr("quid", z)), sorted);
        return new TNDelimiterExpr(new TNConstantExpr(", "), quids);
    }

    // count(Operation o where o.owner.isAbstract)
    TNValueExpr* buildR4() const {
        ObjectVar o = new TNObjectVarExpr;
        auto* test = new TNValueAbsExpr(o, new TNAttrExpr("isAbstract", single("owner", o)));
        return new TNCountExpr(new TNFilterExpr(test, all("Operation")));
    }

    // count(Package p where (some c in p.classes: c.documentation != "") and (all c in
    // p.classes: c.order < 50000))
    TNValueExpr* buildR5() const {
        ObjectVar p = new TNObjectVarExpr;
        ObjectVar c = new TNObjectVarExpr;
        ObjectVar d = new TNObjectVarExpr;
        auto* documented = new TNSomeExpr(linked("classes", p),
                                          new TNRelationalExpr(new TNAttrExpr("documentation", c),
                                                               TNRelationalExpr::TNNotEqual,
                                                               new TNConstantExpr("")),
                                          c);
        auto* early =
            new TNAllExpr(linked("classes", p),
                          new TNRelationalExpr(new TNAttrExpr("order", d), TNRelationalExpr::TNLess,
                                               new TNConstantExpr(50000)),
                          d);
        auto* test =
            new TNValueAbsExpr(p, new TNBooleanExpr(documented, TNBooleanExpr::TNAnd, early));
        return new TNCountExpr(new TNFilterExpr(test, all("Package")));
    }

    // join("; ", a.name + "@" + a.owner.name for each Attribute a)
    TNValueExpr* buildR6() const {
        ObjectVar a = new TNObjectVarExpr;
        auto* at = new TNArithmeticExpr(new TNAttrExpr("name", a), TNArithmeticExpr::TNPlus,
                                        new TNConstantExpr("@"));
        auto* text = new TNArithmeticExpr(at, TNArithmeticExpr::TNPlus,
                                          new TNAttrExpr("name", single("owner", a)));
        auto* texts = new TNMapExpr(new TNValueAbsExpr(a, text), all("Attribute"));
        return new TNDelimiterExpr(new TNConstantExpr("; "), texts);
    }

    // Declared first, so that it frees the graphs after the pointers below are gone; the input
    // variable is shared by every graph and freed with the first that reaches it.
    TNExprOwner m_graphs;
    ObjectVar m_input = new TNObjectVarExpr;
    TNValueExpr* m_r1 = nullptr;
    TNStringCollectionExpr* m_r2 = nullptr;
    TNValueExpr* m_r3 = nullptr;
    TNValueExpr* m_r4 = nullptr;
    TNValueExpr* m_r5 = nullptr;
    TNValueExpr* m_r6 = nullptr;
};

} // namespace w1
