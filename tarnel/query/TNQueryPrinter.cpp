// The query printer: any graph of the library's nodes to canonical query text. Each node prints
// as the text that compiles back to it, with the precedence level of that text, so that an
// operand is put in parentheses only where its level is looser than its place needs.
#include "tarnel/query/TNQuery.h"
#include "tarnel/query/TNQuerySyntax.h"

#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNExtensionExpr.h"
#include "tarnel/expressions/TNQuantifierExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"

#include "tarnel/navigation/TNTraversalParser.h"

#include <charconv>
#include <cmath>
#include <map>
#include <set>
#include <typeinfo>
#include <vector>

using namespace tn_query;

namespace {

// Printed text and its precedence level (tn_query's levels).
struct Text {
    SgxString text;
    int level = postfixLevel;
};

[[noreturn]] void cannot(const SgxString& what) { SgxException::raise("Query printer: " + what); }

// A traversal graph in the chain notation. The text is read back with tnParseTraversal and
// compared with the graph, node by node: the notation decides which steps add to the result and
// how branches share their continuation, so a graph it would read otherwise is refused.
class ChainPrinter {
public:
    SgxString print(const TNAssociationTraversal& root) {
        m_root = &root;
        countLinks(root);
        const SgxString text = group(&root);
        TNAssociationTraversal* parsed = nullptr;
        try {
            parsed = tnParseTraversal(text);
        } catch (const SgxException&) {
            cannot("a traversal the chain notation cannot write");
        }
        SgxCyclicPtr<TNAssociationTraversal> owner(parsed);
        owner.takeOwnership();
        std::map<const TNAssociationTraversal*, const TNAssociationTraversal*> matched;
        if (!same(&root, parsed, matched))
            cannot("a traversal the chain notation cannot write (it reads back as " + text + ")");
        return text;
    }

private:
    using Node = TNAssociationTraversal;

    // How many links reach each node from the root, along children and siblings.
    void countLinks(const Node& root) {
        std::vector<const Node*> pending{&root};
        m_links[&root] = 0;
        while (!pending.empty()) {
            const Node* node = pending.back();
            pending.pop_back();
            if (m_links.size() > TNQueryLimits().maxGraphHeight)
                cannot("a traversal of more than " +
                       std::to_string(TNQueryLimits().maxGraphHeight) + " steps");
            for (const Node* next : {node->child().get(), node->sibling().get()})
                if (next != nullptr && m_links[next]++ == 0 && next != &root)
                    pending.push_back(next);
        }
    }
    // Whether a later '@' may refer to the node: more links reach it than the one printing it.
    bool referenced(const Node* node) { return m_links[node] > (node == m_root ? 0 : 1); }
    SgxString label(const Node* node) {
        auto [it, added] = m_labels.emplace(node, "");
        if (added)
            it->second = "s" + std::to_string(m_labels.size());
        return it->second;
    }
    // A node and its siblings: one element, or a group of branches.
    SgxString group(const Node* node) {
        if (m_printed.contains(node))
            return "@" + label(node);
        if (node->sibling().isNull())
            return chain(node, true);
        const SgxString prefix = referenced(node) ? label(node) + ": " : "";
        SgxString text = prefix + "( " + chain(node, false);
        for (const Node* sibling = node->sibling().get(); sibling != nullptr;
             sibling = sibling->sibling().get()) {
            if (m_printed.contains(sibling)) {
                text += "; @" + label(sibling);
                break;
            }
            text += "; " + chain(sibling, true);
        }
        return text + " )";
    }
    // A step and what follows it.
    SgxString chain(const Node* node, bool labelled) {
        if (++m_depth > TNQueryLimits().maxGraphHeight)
            cannot("a traversal nested too deeply");
        m_printed.insert(node);
        const SgxString role = node->associationToTraverse();
        if (node->depthFirstEvaluation() || role.find(']') != SgxString::npos ||
            (!role.empty() && (role.front() == ' ' || role.back() == ' ')))
            cannot("a traversal step the chain notation cannot write");
        SgxString text = labelled && referenced(node) ? label(node) + ": " : "";
        text += "[" + role + "]" + condition(*node);
        if (!node->child().isNull())
            text += " -> " + group(node->child().get());
        --m_depth;
        return text;
    }
    // ` { class current = "X" }` for the class condition, the only one the notation has.
    static SgxString condition(const Node& node) {
        const SgxCountedPtr<TNValueAbsExpr> abs = node.condition();
        if (abs.get() == nullptr)
            return "";
        const SgxString name = classCondition(*abs);
        if (name.empty() || name.find('"') != SgxString::npos)
            cannot("a traversal condition other than { class current = \"X\" }");
        return " { class current = \"" + name + "\" }";
    }
    static SgxString classCondition(const TNValueAbsExpr& abs) {
        const auto* test = dynamic_cast<const TNRelationalExpr*>(abs.expr().get());
        if (test == nullptr || test->op() != TNRelationalExpr::TNEqual)
            return "";
        const auto* className = dynamic_cast<const TNClassNameExpr*>(test->lhs().get());
        const auto* constant = dynamic_cast<const TNConstantExpr*>(test->rhs().get());
        if (className == nullptr || constant == nullptr || constant->constant().text() == nullptr ||
            className->object().get() != abs.contextObject().get())
            return "";
        return constant->constant().text();
    }
    // Whether `a` (printed) and `b` (read back) are alike, node by node.
    static bool same(const Node* a, const Node* b, std::map<const Node*, const Node*>& matched) {
        std::vector<std::pair<const Node*, const Node*>> pending{{a, b}};
        while (!pending.empty()) {
            auto [x, y] = pending.back();
            pending.pop_back();
            if ((x == nullptr) != (y == nullptr))
                return false;
            if (x == nullptr)
                continue;
            const auto [it, added] = matched.emplace(x, y);
            if (!added) {
                if (it->second != y)
                    return false;
                continue;
            }
            const bool xCondition = x->condition().get() != nullptr;
            const bool yCondition = y->condition().get() != nullptr;
            if (x->associationToTraverse() != y->associationToTraverse() ||
                x->addToResult() != y->addToResult() || xCondition != yCondition ||
                (xCondition && classCondition(*x->condition()) != classCondition(*y->condition())))
                return false;
            pending.emplace_back(x->child().get(), y->child().get());
            pending.emplace_back(x->sibling().get(), y->sibling().get());
        }
        return true;
    }

    std::map<const Node*, size_t> m_links;
    std::map<const Node*, SgxString> m_labels;
    std::set<const Node*> m_printed;
    const Node* m_root = nullptr;
    size_t m_depth = 0;
};

class Printer {
public:
    explicit Printer(const TNObjectVarExpr* self) : m_self(self) {}

    template <class Family> SgxString print(const Family& root) { return node(root).text; }

private:
    // One node deeper; raises past the graph height the compiler allows (cycles end here).
    class Depth {
    public:
        explicit Depth(Printer& p) : m_printer(p) {
            if (++m_printer.m_depth > TNQueryLimits().maxGraphHeight)
                cannot("the graph is more than " + std::to_string(TNQueryLimits().maxGraphHeight) +
                       " nodes deep (or has a cycle)");
        }
        ~Depth() { --m_printer.m_depth; }
        Depth(const Depth&) = delete;
        Depth& operator=(const Depth&) = delete;

    private:
        Printer& m_printer;
    };

    template <class T> static const T& operand(const SgxCyclicPtr<T>& ptr, const char* what) {
        if (ptr.get() == nullptr)
            cannot(SgxString("an operand is not set (") + what + ")");
        return *ptr.get();
    }
    static SgxString wrap(const Text& t, int level) {
        return t.level < level ? "(" + t.text + ")" : t.text;
    }
    // A receiver of '.' or '->'.
    template <class T> SgxString receiver(const SgxCyclicPtr<T>& ptr, const char* what) {
        return wrap(node(operand(ptr, what)), postfixLevel);
    }
    template <class T> SgxString argument(const SgxCyclicPtr<T>& ptr, const char* what) {
        return node(operand(ptr, what)).text;
    }

    // --- Names ---------------------------------------------------------------------------------
    SgxString variable(const TNObjectVarExpr& var) {
        for (auto it = m_variables.rbegin(); it != m_variables.rend(); ++it)
            if (it->first == &var)
                return it->second;
        if (m_self == nullptr)
            m_self = &var;
        if (m_self != &var)
            cannot("a second variable that no lambda binds (only self may be free)");
        return "self";
    }
    bool isSelf(const TNObjectExpr* object) {
        const auto* var = dynamic_cast<const TNObjectVarExpr*>(object);
        return var != nullptr && variable(*var) == "self";
    }
    // `x | body` for a variable bound around `body`.
    template <class Body>
    SgxString lambda(const SgxCyclicPtr<TNObjectVarExpr>& var, const Body& body) {
        const SgxString name = lambdaName();
        m_variables.emplace_back(&operand(var, "lambda variable"), name);
        SgxString text = name + " | " + node(body).text;
        m_variables.pop_back();
        return text;
    }
    SgxString lambdaName() const {
        static const char* const first[] = {"x", "y", "z", "u", "v", "w"};
        const size_t depth = m_variables.size();
        return depth < 6 ? SgxString(first[depth]) : "x" + std::to_string(depth);
    }
    template <class Abs> SgxString abstraction(const SgxCyclicPtr<Abs>& abs, const char* what) {
        const Abs& a = operand(abs, what);
        return lambda(a.contextObject(), operand(a.expr(), what));
    }

    // --- Framework nodes of every family -------------------------------------------------------
    template <class Family> bool framework(const Family& n, Text& out) {
        if (const auto* binding = dynamic_cast<const TNBindingNode<Family>*>(&n)) {
            for (auto it = m_bindings.rbegin(); it != m_bindings.rend(); ++it)
                if (it->first == static_cast<const TNCachedExpr*>(binding)) {
                    out = {it->second, postfixLevel};
                    return true;
                }
            cannot("a binding used outside the let that flushes it");
        }
        if (const auto* let = dynamic_cast<const TNLetNode<Family>*>(&n)) {
            const TNCachedExpr* cached = let->binding().get();
            if (cached == nullptr)
                cannot("a let without a binding");
            const SgxString name = "b" + std::to_string(m_bindings.size() + 1);
            const SgxString bound = boundText(*cached);
            m_bindings.emplace_back(cached, name);
            const SgxString body = node(operand(let->expr(), "let body")).text;
            m_bindings.pop_back();
            out = {"let " + name + " = " + bound + " in " + body, letLevel};
            return true;
        }
        if (const auto* conditional = dynamic_cast<const TNIfNode<Family>*>(&n)) {
            out = {"if " + argument(conditional->testExpr(), "if test") + " then " +
                       argument(conditional->thenExpr(), "then") + " else " +
                       argument(conditional->elseExpr(), "else") + " endif",
                   postfixLevel};
            return true;
        }
        return false;
    }
    // The expression a binding caches, whatever its family.
    SgxString boundText(const TNCachedExpr& cached) {
        if (const auto* b = dynamic_cast<const TNBindingNode<TNValueExpr>*>(&cached))
            return argument(b->expr(), "binding");
        if (const auto* b = dynamic_cast<const TNBindingNode<TNObjectExpr>*>(&cached))
            return argument(b->expr(), "binding");
        if (const auto* b = dynamic_cast<const TNBindingNode<TNObjectCollectionExpr>*>(&cached))
            return argument(b->expr(), "binding");
        if (const auto* b = dynamic_cast<const TNBindingNode<TNStringCollectionExpr>*>(&cached))
            return argument(b->expr(), "binding");
        cannot("a let whose binding is no binding node of the library");
    }

    template <class Family> [[noreturn]] static void unknownNode(const Family& n) {
        cannot(SgxString("no textual form for node class ") + typeid(n).name());
    }

    // --- Values --------------------------------------------------------------------------------
    Text node(const TNValueExpr& n) {
        Depth depth(*this);
        Text out;
        if (framework(n, out))
            return out;
        if (const auto* c = dynamic_cast<const TNConstantExpr*>(&n))
            return constant(c->constant());
        if (const auto* r = dynamic_cast<const TNRelationalExpr*>(&n)) {
            for (const BinaryOperator& op : binaryOperators)
                if (op.level == compareLevel && op.relOp == r->op())
                    return binary(op, node(operand(r->lhs(), "lhs")),
                                  node(operand(r->rhs(), "rhs")));
            cannot("TNRelationalExpr operator " + std::to_string(r->op()));
        }
        if (const auto* b = dynamic_cast<const TNBooleanExpr*>(&n)) {
            if (b->op() == TNBooleanExpr::TNNot)
                return {"not " + wrap(node(operand(b->lhs(), "not")), unaryLevel), unaryLevel};
            for (const BinaryOperator& op : binaryOperators)
                if (op.logOp == b->op() && op.logOp != noLog)
                    return binary(op, node(operand(b->lhs(), "lhs")),
                                  node(operand(b->rhs(), "rhs")));
            cannot("TNBooleanExpr operator " + std::to_string(b->op()));
        }
        if (const auto* a = dynamic_cast<const TNArithmeticExpr*>(&n)) {
            const Text lhs = node(operand(a->lhs(), "lhs"));
            if (a->rhs().get() == nullptr && a->op() == TNArithmeticExpr::TNMinus) {
                // A minus written straight before a number would be read as part of it.
                const SgxString operandText = wrap(lhs, unaryLevel);
                if (!operandText.empty() && operandText.front() >= '0' &&
                    operandText.front() <= '9')
                    return {"-(" + operandText + ")", unaryLevel};
                return {(operandText.starts_with("-") ? "- " : "-") + operandText, unaryLevel};
            }
            // A missing rhs reads as TNVNone, which null writes.
            const Text rhs = a->rhs().get() == nullptr ? Text{"null"} : node(*a->rhs().get());
            for (const BinaryOperator& op : binaryOperators)
                if (op.arithOp == a->op() && op.arithOp != noArith)
                    return binary(op, lhs, rhs);
            cannot("TNArithmeticExpr operator " + std::to_string(a->op()));
        }
        if (const auto* c = dynamic_cast<const TNConversionExpr*>(&n)) {
            const SgxString value = receiver(c->value(), "conversion");
            switch (c->to()) {
            case TNVInt:
                return {value + ".toInteger()"};
            case TNVDouble:
                return {value + ".toReal()"};
            case TNVString:
                return {value + ".toString()"};
            case TNVBoolean:
                return {value + ".toBoolean()"};
            case TNVNone:
                return {value + ".convert(None)"};
            case TNVLong:
                return {value + ".convert(Long)"};
            }
            cannot("TNConversionExpr to type " + std::to_string(c->to()));
        }
        if (const auto* c = dynamic_cast<const TNCountExpr*>(&n))
            return {receiver(c->collection(), "count") + "->size()"};
        if (const auto* a = dynamic_cast<const TNAttrExpr*>(&n))
            return {attribute(a->object(), a->name())};
        if (const auto* a = dynamic_cast<const TNEnumIndexExpr*>(&n))
            return {attribute(a->object(), a->name()) + ".index()"};
        if (const auto* m = dynamic_cast<const TNRegExpMatchExpr*>(&n))
            return {receiver(m->str(), "str") + ".matches(" + argument(m->regexp(), "regexp") +
                    ")"};
        if (const auto* f = dynamic_cast<const TNRegExpFindExpr*>(&n))
            return {receiver(f->str(), "str") + ".find(" + argument(f->regexp(), "regexp") + ")"};
        if (const auto* r = dynamic_cast<const TNRegExpReplaceExpr*>(&n))
            return {receiver(r->source(), "source") +
                    (r->replaceAll() ? ".replaceAll(" : ".replaceFirst(") +
                    argument(r->regexp(), "regexp") + ", " +
                    argument(r->replacement(), "replacement") + ")"};
        if (const auto* m = dynamic_cast<const TNStringManipulationExpr*>(&n)) {
            static const char* const names[] = {"toLower", "toUpper", "trim"};
            if (m->op() < TNStringManipulationExpr::TNToLower ||
                m->op() > TNStringManipulationExpr::TNTrim)
                cannot("TNStringManipulationExpr operator " + std::to_string(m->op()));
            return {receiver(m->str(), "str") + "." + names[m->op() - 1] + "()"};
        }
        if (const auto* d = dynamic_cast<const TNDelimiterExpr*>(&n))
            return {receiver(d->collection(), "collection") + "->join(" +
                    argument(d->delimiter(), "delimiter") + ")"};
        if (const auto* c = dynamic_cast<const TNClassNameExpr*>(&n))
            return {receiver(c->object(), "object") + ".className()"};
        if (const auto* u = dynamic_cast<const TNUidExpr*>(&n))
            return {receiver(u->object(), "object") + ".uid()"};
        if (const auto* a = dynamic_cast<const TNApplyValueExpr*>(&n))
            return {receiver(a->parameter(), "parameter") + ".apply(" +
                    abstraction(a->abstraction(), "abstraction") + ")"};
        if (const auto* q = dynamic_cast<const TNQuantifierExpr*>(&n)) {
            const char* name = dynamic_cast<const TNAllExpr*>(q) != nullptr    ? "forAll"
                               : dynamic_cast<const TNSomeExpr*>(q) != nullptr ? "exists"
                                                                               : nullptr;
            if (name == nullptr)
                unknownNode(n);
            return {receiver(q->collection(), "collection") + "->" + name + "(" +
                    lambda(q->boundVariable(), operand(q->condition(), "condition")) + ")"};
        }
        if (const auto* s = dynamic_cast<const TNObjectSetExpr*>(&n)) {
            static const char* const ops[] = {"=", "<>", "<", "<="};
            if (s->op() < TNObjectSetExpr::TNSetEqual || s->op() > TNObjectSetExpr::TNSubset)
                cannot("TNObjectSetExpr operator " + std::to_string(s->op()));
            return compare(ops[s->op() - 1], node(operand(s->lhs(), "lhs")),
                           node(operand(s->rhs(), "rhs")));
        }
        if (const auto* e = dynamic_cast<const TNObjectEqualityExpr*>(&n)) {
            if (e->op() != TNObjectEqualityExpr::TNEqual &&
                e->op() != TNObjectEqualityExpr::TNNotEqual)
                cannot("TNObjectEqualityExpr operator " + std::to_string(e->op()));
            return compare(e->op() == TNObjectEqualityExpr::TNEqual ? "=" : "<>",
                           node(operand(e->lhs(), "lhs")), node(operand(e->rhs(), "rhs")));
        }
        if (const auto* a = dynamic_cast<const TNAggregateExpr*>(&n)) {
            static const char* const names[] = {"sum", "min", "max", "average"};
            if (a->op() < TNAggregateExpr::TNSum || a->op() > TNAggregateExpr::TNAverage)
                cannot("TNAggregateExpr operator " + std::to_string(a->op()));
            return {receiver(a->collection(), "collection") + "->" + names[a->op() - 1] + "(" +
                    abstraction(a->function(), "function") + ")"};
        }
        if (const auto* l = dynamic_cast<const TNStringLengthExpr*>(&n))
            return {receiver(l->str(), "str") + ".size()"};
        if (const auto* s = dynamic_cast<const TNSubstringExpr*>(&n))
            return {receiver(s->str(), "str") + ".substring(" + argument(s->lower(), "lower") +
                    ", " + argument(s->upper(), "upper") + ")"};
        unknownNode(n);
    }

    static Text constant(const TNValue& value) {
        switch (value.myType()) {
        case TNVNone:
            return {"null"};
        case TNVBoolean:
            return {value.asBoolean() ? "true" : "false"};
        case TNVString:
            return {quoteText(value.text())};
        case TNVInt: {
            const int32_t i = value.asLongInt();
            return {std::to_string(i), i < 0 ? unaryLevel : postfixLevel};
        }
        case TNVDouble: {
            const double d = value.asDouble();
            if (!std::isfinite(d))
                cannot("a real that is not finite");
            char buffer[64];
            const auto result = std::to_chars(buffer, buffer + sizeof buffer, d);
            SgxString text(buffer, result.ptr);
            if (text.find_first_of(".e") == SgxString::npos)
                text += ".0";
            return {text, std::signbit(d) ? unaryLevel : postfixLevel};
        }
        case TNVLong:
            break;
        }
        cannot("a constant of value type " + std::to_string(value.myType()));
    }
    static Text binary(const BinaryOperator& op, const Text& lhs, const Text& rhs) {
        if (op.level == compareLevel)
            return compare(op.text, lhs, rhs);
        return {wrap(lhs, op.level) + " " + SgxString(op.text) + " " + wrap(rhs, op.level + 1),
                op.level};
    }
    static Text compare(std::string_view op, const Text& lhs, const Text& rhs) {
        return {wrap(lhs, compareLevel + 1) + " " + SgxString(op) + " " +
                    wrap(rhs, compareLevel + 1),
                compareLevel};
    }
    // obj.name, or obj.attribute(expr) when the name is not a constant bare name.
    SgxString attribute(const TNObjectExprPtr& object, const TNValueExprPtr& name) {
        const SgxString target = receiver(object, "object");
        const auto* constant = dynamic_cast<const TNConstantExpr*>(name.get());
        if (constant != nullptr && constant->constant().text() != nullptr &&
            isIdentifier(constant->constant().text()))
            return target + "." + constant->constant().text();
        return target + ".attribute(" + argument(name, "name") + ")";
    }

    // --- Objects -------------------------------------------------------------------------------
    Text node(const TNObjectExpr& n) {
        Depth depth(*this);
        Text out;
        if (framework(n, out))
            return out;
        if (const auto* var = dynamic_cast<const TNObjectVarExpr*>(&n))
            return {variable(*var)};
        if (const auto* x = dynamic_cast<const TNObjectExtractionExpr*>(&n))
            return {receiver(x->collection(), "collection") +
                    (x->choice() == TNObjectExtractionExpr::ExactlyOne ? "->one()" : "->first()")};
        if (const auto* m = dynamic_cast<const TNModelExpr*>(&n)) {
            if (isSelf(m->object().get()))
                return {"model"};
            return {receiver(m->object(), "object") + ".model()"};
        }
        unknownNode(n);
    }

    // --- Object collections --------------------------------------------------------------------
    Text node(const TNObjectCollectionExpr& n) {
        Depth depth(*this);
        Text out;
        if (framework(n, out))
            return out;
        if (const auto* a = dynamic_cast<const TNAllInstancesExpr*>(&n)) {
            const auto* constant = dynamic_cast<const TNConstantExpr*>(a->name().get());
            if (constant != nullptr && constant->constant().text() != nullptr &&
                isIdentifier(constant->constant().text()) && isSelf(a->object().get()))
                return {SgxString(constant->constant().text()) + ".allInstances()"};
            return {receiver(a->object(), "object") + ".allInstancesOf(" +
                    argument(a->name(), "name") + ")"};
        }
        if (const auto* a = dynamic_cast<const TNAssociationExpr*>(&n))
            return {receiver(a->object(), "object") +
                    navigation(operand(a->association(), "association"))};
        if (const auto* f = dynamic_cast<const TNFilterExpr*>(&n))
            return {receiver(f->collection(), "collection") + "->select(" +
                    abstraction(f->predicate(), "predicate") + ")"};
        if (const auto* t = dynamic_cast<const TNTraverseExpr*>(&n))
            return {receiver(t->collection(), "collection") + "->collect(" +
                    abstraction(t->path(), "path") + ")"};
        if (const auto* s = dynamic_cast<const TNSortExpr*>(&n))
            return {receiver(s->collection(), "collection") + "->sortedBy(" + sortKeys(*s) + ")"};
        if (const auto* u = dynamic_cast<const TNUniqueExpr*>(&n))
            return {receiver(u->collection(), "collection") +
                    (u->isStable() ? "->asOrderedSet()" : "->asSet()")};
        if (const auto* r = dynamic_cast<const TNReverseExpr*>(&n))
            return {receiver(r->collection(), "collection") + "->reverse()"};
        if (const auto* s = dynamic_cast<const TNCollectionSetOpExpr*>(&n)) {
            static const char* const names[] = {"union", "intersection", "difference"};
            if (s->op() < TNCollectionSetOpExpr::TNUnion ||
                s->op() > TNCollectionSetOpExpr::TNDifference)
                cannot("TNCollectionSetOpExpr operator " + std::to_string(s->op()));
            return {receiver(s->lhs(), "lhs") + "->" + names[s->op() - 1] + "(" +
                    argument(s->rhs(), "rhs") + ")"};
        }
        unknownNode(n);
    }
    // The keys of a sort, under one variable name: each key's own variable is named alike.
    SgxString sortKeys(const TNSortExpr& sort) {
        const std::vector<TNSortExpr::SortKey> keys = sort.keys();
        if (keys.empty())
            return "";
        const SgxString name = lambdaName();
        SgxString text = name + " | ";
        for (size_t i = 0; i < keys.size(); ++i) {
            const TNValueAbsExpr& key = operand(keys[i].key, "sort key");
            m_variables.emplace_back(&operand(key.contextObject(), "sort key variable"), name);
            text += (i > 0 ? ", " : "") + node(operand(key.expr(), "sort key")).text +
                    (keys[i].ascending ? "" : " desc");
            m_variables.pop_back();
        }
        return text;
    }
    // '.role' for a single step through a role written as a bare name; otherwise
    // ".navigate('chain')" in the chain notation.
    static SgxString navigation(const TNAssociationTraversal& step) {
        const SgxString role = step.associationToTraverse();
        if (step.isSingleStep() && !step.depthFirstEvaluation() && isIdentifier(role))
            return "." + role;
        return ".navigate(" + quoteText(ChainPrinter().print(step)) + ")";
    }
    // --- Text collections ----------------------------------------------------------------------
    Text node(const TNStringCollectionExpr& n) {
        Depth depth(*this);
        Text out;
        if (framework(n, out))
            return out;
        if (const auto* m = dynamic_cast<const TNMapExpr*>(&n))
            return {receiver(m->collection(), "collection") + "->collect(" +
                    abstraction(m->function(), "function") + ")"};
        unknownNode(n);
    }

    const TNObjectVarExpr* m_self;
    std::vector<std::pair<const TNObjectVarExpr*, SgxString>> m_variables;
    std::vector<std::pair<const TNCachedExpr*, SgxString>> m_bindings;
    size_t m_depth = 0;
};

} // namespace

SgxString tnPrintQuery(const TNValueExpr& root, const TNObjectVarExpr* self) {
    return Printer(self).print(root);
}
SgxString tnPrintQuery(const TNObjectExpr& root, const TNObjectVarExpr* self) {
    return Printer(self).print(root);
}
SgxString tnPrintQuery(const TNObjectCollectionExpr& root, const TNObjectVarExpr* self) {
    return Printer(self).print(root);
}
SgxString tnPrintQuery(const TNStringCollectionExpr& root, const TNObjectVarExpr* self) {
    return Printer(self).print(root);
}
