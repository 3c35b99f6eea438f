#include "tarnel/expressions/TNExprCheck.h"

#include "rw/RWCRegexp.h"
#include "tarnel/core/TNChecked.h"
#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNQuantifierExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNAssociationTraversal.h"

#include <algorithm>
#include <functional>
#include <string>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>

namespace {

// What the objects a node yields are known to be: nothing yet (a traversal adding no objects, or
// one met again through a cycle), objects of one class, or objects of no class known.
struct Objects {
    bool any = false;
    const TNClass* cls = nullptr; // null when any: the class is unknown

    static Objects none() { return {}; }
    static Objects of(const TNClass* cls) { return {true, cls}; }
    // The objects of this and of `other` together.
    Objects operator|(const Objects& other) const {
        if (!any)
            return other;
        if (!other.any)
            return *this;
        return of(cls == other.cls ? cls : nullptr);
    }
};

// The text of `operand` when it is a constant, else null (a name computed at evaluation time).
const TNValue* constantOf(const SgxCyclicPtrBody* operand) {
    const auto* constant = dynamic_cast<const TNConstantExpr*>(operand);
    return constant != nullptr ? &constant->constant() : nullptr;
}

SgxString quoted(const SgxString& name) { return "'" + name + "'"; }

class Checker {
public:
    Checker(const TNSchema& schema, const std::vector<TNExprParameter>& parameters)
        : m_schema(schema) {
        for (const TNExprParameter& parameter : parameters) {
            const TNClass* cls = nullptr;
            if (!parameter.className.empty()) {
                cls = m_schema.findClass(parameter.className).get();
                if (cls == nullptr)
                    report(TNExprProblem::UnknownClass,
                           "unknown class " + quoted(parameter.className) + " of a parameter");
            }
            if (parameter.variable != nullptr)
                m_bound[parameter.variable] = cls;
        }
    }

    std::vector<TNExprProblem> problems() && { return std::move(m_problems); }

    // Walks `node` (not null) and what it reaches; returns what it yields when it yields objects.
    Objects walk(const SgxCyclicPtrBody* node) {
        if (const auto* variable = dynamic_cast<const TNObjectVarExpr*>(node))
            return use(*variable);
        if (const auto* traversal = dynamic_cast<const TNAssociationTraversal*>(node))
            return walkTraversal(traversal, nullptr);
        if (const auto done = m_done.find(node); done != m_done.end())
            return done->second;
        if (!m_active.insert(node).second)
            return Objects::none(); // a cycle: the node's objects count where it was first met
        m_path.push_back(tn_detail::className(typeid(*node)));
        const Objects result = examine(*node);
        m_path.pop_back();
        m_active.erase(node);
        m_done.emplace(node, result);
        return result;
    }

    void report(TNExprProblem::Kind kind, SgxString message) {
        SgxString path;
        for (const SgxString& step : m_path)
            path += (path.empty() ? "" : " > ") + step;
        m_problems.push_back({kind, std::move(path), std::move(message)});
    }

private:
    // The rules of the nodes that say something about classes, names and variables. A rule walks
    // the operands it needs in its own order and context and marks them covered; examine() then
    // walks the other operands and reports the null ones.
    Objects examine(const SgxCyclicPtrBody& node) {
        std::vector<const SgxCyclicPtrBody*> covered;
        const auto operand = [&](const SgxCyclicPtrBody* child) {
            if (child == nullptr)
                return Objects::of(nullptr);
            covered.push_back(child);
            return walk(child);
        };
        // Walks `abstraction` with its variable bound to `argument`'s class.
        const auto applied = [&](const SgxCyclicPtrBody* abstraction, const Objects& argument) {
            if (abstraction != nullptr)
                m_argument[abstraction] = argument.cls;
            return operand(abstraction);
        };
        Objects result = Objects::of(nullptr);

        if (const TNObjectVarExpr* variable = abstractionVariable(node)) {
            covered.push_back(variable);
            const SgxCyclicPtrBody* body = abstractionBody(node);
            result = bound(*variable, argumentOf(&node), [&] { return operand(body); });
        } else if (const auto* quantifier = dynamic_cast<const TNQuantifierExpr*>(&node)) {
            const Objects elements = operand(quantifier->collection().get());
            if (const TNObjectVarExpr* variable = quantifier->boundVariable().get()) {
                covered.push_back(variable);
                bound(*variable, elements.cls,
                      [&] { return operand(quantifier->condition().get()); });
            }
        } else if (const auto* all = dynamic_cast<const TNAllInstancesExpr*>(&node)) {
            operand(all->object().get());
            if (const TNValue* name = constantOf(all->name().get()))
                result = Objects::of(namedClass(name->asString()));
        } else if (const auto* attr = dynamic_cast<const TNAttrExpr*>(&node)) {
            const Objects object = operand(attr->object().get());
            if (const TNValue* name = constantOf(attr->name().get()))
                checkAttribute(object.cls, name->asString());
        } else if (const auto* navigation = dynamic_cast<const TNAssociationExpr*>(&node)) {
            const Objects source = operand(navigation->object().get());
            if (const TNAssociationTraversal* traversal = navigation->association().get()) {
                covered.push_back(traversal);
                result = walkTraversal(traversal, source.cls);
            }
        } else if (const auto* filter = dynamic_cast<const TNFilterExpr*>(&node)) {
            result = operand(filter->collection().get());
            applied(filter->predicate().get(), result);
        } else if (const auto* sort = dynamic_cast<const TNSortExpr*>(&node)) {
            result = operand(sort->collection().get());
            for (const TNSortExpr::SortKey& key : sort->keys())
                applied(key.key.get(), result);
        } else if (const auto* map = dynamic_cast<const TNMapExpr*>(&node)) {
            applied(map->function().get(), operand(map->collection().get()));
        } else if (const auto* traverse = dynamic_cast<const TNTraverseExpr*>(&node)) {
            result = applied(traverse->path().get(), operand(traverse->collection().get()));
        } else if (const auto* apply = dynamic_cast<const TNApplyValueExpr*>(&node)) {
            applied(apply->abstraction().get(), operand(apply->parameter().get()));
        } else if (const auto* unique = dynamic_cast<const TNUniqueExpr*>(&node)) {
            result = operand(unique->collection().get());
        } else if (const auto* reverse = dynamic_cast<const TNReverseExpr*>(&node)) {
            result = operand(reverse->collection().get());
        } else if (const auto* extraction = dynamic_cast<const TNObjectExtractionExpr*>(&node)) {
            result = operand(extraction->collection().get());
        } else if (dynamic_cast<const TNModelExpr*>(&node) != nullptr) {
            const SgxSimplePtr<TNObject> root = m_schema.rootObject();
            result = Objects::of(root.isNull() ? nullptr : root->getClass().get());
        } else if (const auto* search = dynamic_cast<const TNRegExpSearchExpr*>(&node)) {
            checkPattern(search->regexp().get());
        } else if (const auto* replace = dynamic_cast<const TNRegExpReplaceExpr*>(&node)) {
            checkPattern(replace->regexp().get());
        } else if (const auto* relation = dynamic_cast<const TNRelationalExpr*>(&node)) {
            checkClassComparison(*relation);
        } else if (!passedThrough<TNValueExpr>(node, operand, result) &&
                   !passedThrough<TNObjectExpr>(node, operand, result) &&
                   !passedThrough<TNObjectCollectionExpr>(node, operand, result)) {
            passedThrough<TNStringCollectionExpr>(node, operand, result);
        }

        size_t position = 0;
        size_t count = 0;
        tnVisitOperands(node, [&](const SgxCyclicPtrBody*) { ++count; });
        tnVisitOperands(node, [&](const SgxCyclicPtrBody* child) {
            ++position;
            if (child == nullptr) {
                if (!optional(node, position))
                    report(TNExprProblem::UnsetOperand, "operand " + std::to_string(position) +
                                                            " of " + std::to_string(count) +
                                                            " is unset");
            } else if (std::find(covered.begin(), covered.end(), child) == covered.end()) {
                walk(child);
            }
        });
        return result;
    }

    // Bindings, Lets and Ifs yield what their operands yield; a Let also needs its binding.
    template <class Family, class Operand>
    bool passedThrough(const SgxCyclicPtrBody& node, const Operand& operand, Objects& result) {
        if (const auto* binding = dynamic_cast<const TNBindingNode<Family>*>(&node)) {
            result = operand(binding->expr().get());
        } else if (const auto* let = dynamic_cast<const TNLetNode<Family>*>(&node)) {
            if (let->binding().isNull())
                report(TNExprProblem::UnsetOperand, "the binding is unset");
            result = operand(let->expr().get());
        } else if (const auto* choice = dynamic_cast<const TNIfNode<Family>*>(&node)) {
            operand(choice->testExpr().get());
            const Objects then = operand(choice->thenExpr().get());
            result = then | operand(choice->elseExpr().get());
        } else {
            return false;
        }
        return true;
    }

    // The variable of an abstraction of any family, or null when `node` is none (or its
    // variable is unset).
    static const TNObjectVarExpr* abstractionVariable(const SgxCyclicPtrBody& node) {
        const TNObjectVarExpr* variable = nullptr;
        visitAbstraction(
            node, [&](const auto& abstraction) { variable = abstraction.contextObject().get(); });
        return variable;
    }
    static const SgxCyclicPtrBody* abstractionBody(const SgxCyclicPtrBody& node) {
        const SgxCyclicPtrBody* body = nullptr;
        visitAbstraction(node, [&](const auto& abstraction) { body = abstraction.expr().get(); });
        return body;
    }
    template <class Fn> static void visitAbstraction(const SgxCyclicPtrBody& node, Fn fn) {
        if (const auto* a = dynamic_cast<const TNAbsNode<TNValueExpr>*>(&node))
            fn(*a);
        else if (const auto* b = dynamic_cast<const TNAbsNode<TNObjectExpr>*>(&node))
            fn(*b);
        else if (const auto* c = dynamic_cast<const TNAbsNode<TNObjectCollectionExpr>*>(&node))
            fn(*c);
        else if (const auto* d = dynamic_cast<const TNAbsNode<TNStringCollectionExpr>*>(&node))
            fn(*d);
    }

    // Whether operand `position` (from 1) of `node` may be null.
    static bool optional(const SgxCyclicPtrBody& node, size_t position) {
        if (const auto* logic = dynamic_cast<const TNBooleanExpr*>(&node))
            return position == 2 && logic->op() == TNBooleanExpr::TNNot;
        return position == 2 && dynamic_cast<const TNArithmeticExpr*>(&node) != nullptr;
    }

    // The class that the parent of `abstraction` binds its variable to (null: unknown).
    const TNClass* argumentOf(const SgxCyclicPtrBody* abstraction) const {
        const auto found = m_argument.find(abstraction);
        return found != m_argument.end() ? found->second : nullptr;
    }

    // Runs `body` with `variable` bound to objects of `cls`, as before afterwards.
    template <class Body>
    Objects bound(const TNObjectVarExpr& variable, const TNClass* cls, const Body& body) {
        const auto outer = m_bound.find(&variable);
        const bool wasBound = outer != m_bound.end();
        const TNClass* outerClass = wasBound ? outer->second : nullptr;
        m_bound[&variable] = cls;
        const Objects result = body();
        if (wasBound)
            m_bound[&variable] = outerClass;
        else
            m_bound.erase(&variable);
        return result;
    }

    // A variable read where it stands: bound around it, a parameter, or holding an object.
    Objects use(const TNObjectVarExpr& variable) {
        if (const auto found = m_bound.find(&variable); found != m_bound.end())
            return Objects::of(found->second);
        if (const SgxSimplePtr<TNObject> object = variable.object(); !object.isNull())
            return Objects::of(object->getClass().get());
        if (m_unbound.insert(&variable).second) {
            m_path.push_back("TNObjectVarExpr");
            report(TNExprProblem::UnboundVariable,
                   "variable bound by no abstraction or quantifier around it, nor a parameter");
            m_path.pop_back();
        }
        return Objects::of(nullptr);
    }

    const TNClass* namedClass(const SgxString& name) {
        const TNClass* cls = m_schema.findClass(name).get();
        if (cls == nullptr)
            report(TNExprProblem::UnknownClass, "unknown class " + quoted(name));
        return cls;
    }

    // Whether `cls` or a class it handed its members down to satisfies `has`.
    static bool hasInFamily(const TNClass& cls, const std::function<bool(const TNClass&)>& has) {
        if (has(cls))
            return true;
        for (const SgxSimplePtr<TNClass>& child : cls.children())
            if (hasInFamily(*child, has))
                return true;
        return false;
    }
    bool hasInSchema(const std::function<bool(const TNClass&)>& has) const {
        for (const SgxSimplePtr<TNClass>& cls : m_schema.classes())
            if (has(*cls))
                return true;
        return false;
    }

    void checkAttribute(const TNClass* cls, const SgxString& name) {
        const auto has = [&](const TNClass& c) { return c.attributeExists(name); };
        if (cls != nullptr ? hasInFamily(*cls, has) : hasInSchema(has))
            return;
        report(TNExprProblem::UnknownAttribute,
               "unknown attribute " + quoted(name) +
                   (cls != nullptr ? " of class " + cls->name() : SgxString(" (no class has it)")));
    }

    void checkPattern(const SgxCyclicPtrBody* regexp) {
        if (const TNValue* pattern = constantOf(regexp)) {
            const SgxString text = pattern->asString();
            if (RWCRegexp(text).status() != RWCRegexp::OK)
                report(TNExprProblem::MalformedPattern, "malformed pattern " + quoted(text));
        }
    }

    // A class name compared with an object's class (`{ class current = "X" }`) must name a class.
    void checkClassComparison(const TNRelationalExpr& relation) {
        const auto check = [&](const SgxCyclicPtrBody* a, const SgxCyclicPtrBody* b) {
            if (dynamic_cast<const TNClassNameExpr*>(a) != nullptr)
                if (const TNValue* name = constantOf(b))
                    namedClass(name->asString());
        };
        check(relation.lhs().get(), relation.rhs().get());
        check(relation.rhs().get(), relation.lhs().get());
    }

    // The class a class-current condition keeps (`x -> className(x) == "X"`), or null.
    const TNClass* keptClass(const TNValueAbsExpr& condition) const {
        const auto* relation = dynamic_cast<const TNRelationalExpr*>(condition.expr().get());
        if (relation == nullptr || relation->op() != TNRelationalExpr::TNEqual)
            return nullptr;
        const auto* name = dynamic_cast<const TNClassNameExpr*>(relation->lhs().get());
        const TNValue* text = constantOf(relation->rhs().get());
        if (name == nullptr || text == nullptr ||
            name->object().get() != condition.contextObject().get())
            return nullptr;
        return m_schema.findClass(text->asString()).get();
    }

    // The objects a traversal from objects of `source` adds, checking its roles on the way.
    Objects walkTraversal(const TNAssociationTraversal* traversal, const TNClass* source) {
        if (const auto done = m_done.find(traversal); done != m_done.end())
            return done->second;
        if (!m_active.insert(traversal).second)
            return Objects::none();
        m_path.push_back("TNAssociationTraversal");
        const SgxString role = traversal->associationToTraverse();
        const TNClass* gathered = role.empty() ? source : followRole(source, role);
        if (const TNValueAbsExpr* condition = traversal->condition().get()) {
            m_argument[condition] = gathered;
            walk(condition);
            if (const TNClass* kept = keptClass(*condition))
                gathered = kept;
        }
        Objects result = traversal->addToResult() ? Objects::of(gathered) : Objects::none();
        if (const TNAssociationTraversal* child = traversal->child().get())
            result = result | walkTraversal(child, gathered);
        if (const TNAssociationTraversal* sibling = traversal->sibling().get())
            result = result | walkTraversal(sibling, source);
        m_path.pop_back();
        m_active.erase(traversal);
        m_done.emplace(traversal, result);
        return result;
    }

    // The class reached from objects of `source` (null: unknown) through `role`: the other class
    // of the association, or, from an unknown class, the one other class of every association of
    // that role. Checks the chain of a compound association found on the way.
    const TNClass* followRole(const TNClass* source, const SgxString& role) {
        std::vector<const TNAssociation*> found;
        const auto collect = [&](const TNClass& cls) {
            if (cls.associationExists(role))
                found.push_back(cls.getAssociation(role).get());
            return false;
        };
        if (source != nullptr)
            hasInFamily(*source, collect);
        else
            hasInSchema(collect);
        if (found.empty()) {
            report(TNExprProblem::UnknownRole,
                   "unknown role " + quoted(role) +
                       (source != nullptr ? " of class " + source->name()
                                          : SgxString(" (no class has it)")));
            return nullptr;
        }
        const TNClass* reached = found.front()->otherClass().get();
        for (const TNAssociation* association : found) {
            if (association->otherClass().get() != reached)
                reached = nullptr;
            checkChain(*association);
        }
        return reached;
    }

    void checkChain(const TNAssociation& association) {
        const auto* compound = dynamic_cast<const TNCompoundAssociation*>(&association);
        if (compound == nullptr || !m_chains.insert(compound).second)
            return;
        if (const TNAssociationTraversal* root = compound->associationTraversal().get()) {
            m_path.push_back("TNCompoundAssociation " + quoted(compound->name()));
            walkTraversal(root, compound->firstClass().get());
            m_path.pop_back();
        }
    }

    const TNSchema& m_schema;
    std::vector<TNExprProblem> m_problems;
    std::vector<SgxString> m_path;
    // Nodes examined and what they yield; nodes on the path being examined.
    std::unordered_map<const void*, Objects> m_done;
    std::unordered_set<const void*> m_active;
    // Variables bound where the walk stands, to the class of their objects (null: unknown).
    std::unordered_map<const TNObjectVarExpr*, const TNClass*> m_bound;
    // What the parent of each abstraction binds its variable to.
    std::unordered_map<const SgxCyclicPtrBody*, const TNClass*> m_argument;
    std::unordered_set<const TNObjectVarExpr*> m_unbound;
    std::unordered_set<const TNCompoundAssociation*> m_chains;
};

} // namespace

std::vector<TNExprProblem> tnCheckExpression(const TNSchema& schema, const SgxCyclicPtrBody* root,
                                             const std::vector<TNExprParameter>& parameters) {
    Checker checker(schema, parameters);
    if (root == nullptr)
        checker.report(TNExprProblem::UnsetOperand, "the root is unset");
    else
        checker.walk(root);
    return std::move(checker).problems();
}
