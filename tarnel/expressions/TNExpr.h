// TNExpr.h: the expression framework. The four family bases (what a node yields when evaluated),
// the shared mechanics of every node class, object variables, abstractions and their application,
// local bindings (Binding and Let) and conditionals (If).
//
// Ownership. A host builds an expression graph with `new` and links nodes with SgxCyclicPtrs; a
// node may be shared by several parents and setters may point a node back at an ancestor. While
// the graph is built and evaluated no pointer owns anything, so destroying pointers or nodes
// deletes no operand. To delete a graph, the host keeps the root in an SgxCyclicPtr of its own,
// calls takeOwnership() on it and destroys that pointer: each node's prepareForDeletion() claims
// its operand pointers in field order, depth first, so every reachable node ends up owned by
// exactly one pointer and is deleted exactly once, whatever the sharing and cycles. A Let's
// binding is the one link that never owns: the binding must also be reachable from the Let's body.
// Model objects are only borrowed (SgxSimplePtr<TNObject>); no node ever deletes one.
//
// Evaluation. operator()() const evaluates a node's subtree and returns the result by value.
// Evaluating writes object variables and binding caches inside the graph, so a graph is used by
// one thread at a time and is not re-entrant. Errors raised by operands pass through unchanged;
// a null operand raises the SgxCyclicPtr null-dereference SgxException of the access used. A
// checked build (tnCheckedBuild()) raises that text as a TNEvaluationException naming the node
// class, and raises one for a variable evaluated before anything was bound to it.
//
// Plans. Some nodes keep, from one evaluation to the next, what they derived from the shape of
// the nodes below them (see tn_detail::graphChanges); a host changes a graph through the nodes'
// setters and assignments, which make every such plan derived anew.
#pragma once

#include "sgx/general/SgxCountedPtr.h"
#include "sgx/general/SgxCyclicPtr.h"
#include "sgx/general/SgxObject.h"
#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "tarnel/core/TNChecked.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/tarnel_export.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

class TNObject;

// The library's own, needed this early by the family bases (the rest of it is at the end of
// this header, after the public API).
namespace tn_detail {
// Counts a change to a graph (tn_detail::graphChanges).
inline void graphChanged() noexcept;

// A field of a node that decides what its graph computes (an operand, an operator, a name, a
// flag). It changes only by assignment, and every assignment counts as a change to the graph,
// so that no setter, assignment or restore can leave a plan derived from the old value in use.
// It reads as the value it holds: converted, through ->, and with the usual observers of a
// sequence or text. update() is the one way to change it in place.
template <class T> class GraphField {
public:
    GraphField() = default;
    GraphField(const T& value) : m_value(value) {}
    GraphField(const GraphField&) = default;
    GraphField& operator=(const GraphField& other) { return *this = other.m_value; }
    GraphField& operator=(const T& value) {
        m_value = value;
        graphChanged();
        return *this;
    }
    // Changes the value in place through change(T&), counted as one change to the graph.
    template <class Change> void update(Change&& change) {
        change(m_value);
        graphChanged();
    }

    const T& value() const noexcept { return m_value; }
    operator const T&() const noexcept { return m_value; }
    const T* operator->() const noexcept { return &m_value; }
    auto begin() const noexcept requires requires(const T& v) { v.begin(); }
    { return m_value.begin(); }
    auto end() const noexcept requires requires(const T& v) { v.end(); }
    { return m_value.end(); }
    bool empty() const noexcept requires requires(const T& v) { v.empty(); }
    { return m_value.empty(); }
    size_t size() const noexcept requires requires(const T& v) { v.size(); }
    { return m_value.size(); }

private:
    T m_value{};
};

// A pointer field (SgxCyclicPtr, SgxSimplePtr, SgxCountedPtr): the pointer itself, whose one
// mutator, assignment, counts as a change to the graph. Being the pointer, it passes wherever
// the pointer is asked for (tnOperand, tnClaimOperands) and reads as one.
template <class Pointer> class GraphPointerField : public Pointer {
public:
    using Pointer::Pointer;
    GraphPointerField() = default;
    GraphPointerField(const Pointer& pointer) : Pointer(pointer) {}
    GraphPointerField(const GraphPointerField&) = default;
    GraphPointerField& operator=(const GraphPointerField& other) {
        return *this = static_cast<const Pointer&>(other);
    }
    GraphPointerField& operator=(const Pointer& pointer) {
        Pointer::operator=(pointer);
        graphChanged();
        return *this;
    }
    // A raw or derived pointer, made into the pointer first.
    template <class Other>
    requires(std::is_convertible_v<Other, Pointer> &&
             !std::is_base_of_v<Pointer, Other>) GraphPointerField&
    operator=(const Other& pointer) {
        return *this = Pointer(pointer);
    }
};
template <class T> class GraphField<SgxCyclicPtr<T>> : public GraphPointerField<SgxCyclicPtr<T>> {
public:
    using GraphPointerField<SgxCyclicPtr<T>>::GraphPointerField;
    using GraphPointerField<SgxCyclicPtr<T>>::operator=;
};
template <class T> class GraphField<SgxSimplePtr<T>> : public GraphPointerField<SgxSimplePtr<T>> {
public:
    using GraphPointerField<SgxSimplePtr<T>>::GraphPointerField;
    using GraphPointerField<SgxSimplePtr<T>>::operator=;
};
template <class T> class GraphField<SgxCountedPtr<T>> : public GraphPointerField<SgxCountedPtr<T>> {
public:
    using GraphPointerField<SgxCountedPtr<T>>::GraphPointerField;
    using GraphPointerField<SgxCountedPtr<T>>::operator=;
};

// A member of every node that takes no room: assigning a node over another changes a graph as
// its setters do.
struct GraphChangeOnAssign {
    GraphChangeOnAssign() = default;
    GraphChangeOnAssign(const GraphChangeOnAssign&) = default;
    GraphChangeOnAssign& operator=(const GraphChangeOnAssign&) noexcept {
        graphChanged();
        return *this;
    }
};
} // namespace tn_detail

// What object-collection and string-collection expressions yield: sequences in a defined order,
// duplicates allowed.
using TNObjectSequence = std::vector<SgxSimplePtr<TNObject>>;
using TNStringSequence = std::vector<SgxString>;

// ---------------------------------------------------------------------------------------------
// Family bases. Each is abstract and has no fields; copying one copies nothing but its SgxObject
// part (a copy starts not owned), and assigning one counts as a change to its graph
// (tn_detail::graphChanges). Result names what operator()() returns.

// Nodes yielding one TNValue.
class TARNEL_API TNValueExpr : public SgxObject, public SgxCyclicPtrBody {
public:
    using Result = TNValue;
    TNValueExpr() = default;
    TNValueExpr(const TNValueExpr&) = default;
    TNValueExpr& operator=(const TNValueExpr&) = default;
    ~TNValueExpr() override = 0;
    virtual TNValue operator()() const = 0;
    // operator()().asBoolean(), with the same evaluations and failures. Nodes yielding truth
    // values override it to skip building the TNValue, so that filters and quantifiers, which
    // call it once per element, stay cheap.
    virtual bool test() const { return (*this)().asBoolean(); }

private:
    [[no_unique_address]] tn_detail::GraphChangeOnAssign m_graphChange;
};

// Nodes yielding one model object, possibly null.
class TARNEL_API TNObjectExpr : public SgxObject, public SgxCyclicPtrBody {
public:
    using Result = SgxSimplePtr<TNObject>;
    TNObjectExpr() = default;
    TNObjectExpr(const TNObjectExpr&) = default;
    TNObjectExpr& operator=(const TNObjectExpr&) = default;
    ~TNObjectExpr() override = 0;
    virtual SgxSimplePtr<TNObject> operator()() const = 0;

private:
    [[no_unique_address]] tn_detail::GraphChangeOnAssign m_graphChange;
};

// A borrowed callable that forEach() hands each element of a sequence in turn; it answers
// whether to go on. It refers to the callable it was made from, so it is valid while that lives
// (a lambda written in the call lives until the call returns). Passed by reference: made once in
// the caller's frame, it is not copied again into each call's arguments.
class TNObjectVisitor;
template <class Fn>
concept TNObjectVisiting = !std::is_same_v<std::remove_cvref_t<Fn>, TNObjectVisitor> &&
                           std::is_invocable_r_v<bool, Fn&, const SgxSimplePtr<TNObject>&>;

class TNObjectVisitor {
public:
    template <TNObjectVisiting Fn>
    TNObjectVisitor(Fn&& fn) noexcept // NOLINT(google-explicit-constructor): lambdas convert
        : m_callable(const_cast<void*>(static_cast<const void*>(std::addressof(fn)))),
          m_call(&call<std::remove_reference_t<Fn>>),
          m_callEach(&callEach<std::remove_reference_t<Fn>>),
          m_expect(expectFor<std::remove_reference_t<Fn>>()),
          m_withoutEffect(withoutEffectFor<std::remove_reference_t<Fn>>()) {}
    bool operator()(const SgxSimplePtr<TNObject>& object) const {
        return m_call(m_callable, object);
    }

    // --- End of public API: what follows is the library's own ---

    // Hands over `count` elements from `first` in order, until the callable answers false
    // (then false): one indirect call for a whole array, the callable inlined in the loop. A
    // callable that also takes (first, count, uniform) gets the array whole; `uniform` says that
    // every element is an object made by the first one's class (tn_detail::linkUniformTag).
    bool each(const SgxSimplePtr<TNObject>* first, size_t count, bool uniform = false) const {
        return m_callEach(m_callable, first, count, uniform);
    }
    // Tells a callable that has expect(size_t) how many elements at most are coming, before a
    // collection that knows hands them over in several calls (so that a result is sized once).
    void expect(size_t total) const {
        if (m_expect != nullptr)
            m_expect(m_callable, total);
    }
    // Whether visiting an element can have no effect but on the callable itself (it changes
    // neither model nor graph, and raises nothing a later visit could not), as a callable that
    // has visitsWithoutEffect() answers: such a visitor may be handed each element as soon as a
    // collection has it, even before the collection's other evaluations (TNFilterExpr).
    bool visitsWithoutEffect() const {
        return m_withoutEffect != nullptr && m_withoutEffect(m_callable);
    }

private:
    template <class Callable>
    static bool call(void* callable, const SgxSimplePtr<TNObject>& object) {
        return static_cast<bool>((*static_cast<Callable*>(callable))(object));
    }
    template <class Callable>
    static bool callEach(void* callable, const SgxSimplePtr<TNObject>* first, size_t count,
                         bool uniform) {
        Callable& fn = *static_cast<Callable*>(callable);
        if constexpr (std::is_invocable_r_v<bool, Callable&, const SgxSimplePtr<TNObject>*, size_t,
                                            bool>) {
            return static_cast<bool>(fn(first, count, uniform));
        } else {
            for (size_t i = 0; i < count; ++i)
                if (!static_cast<bool>(fn(first[i])))
                    return false;
            return true;
        }
    }

    template <class Callable> static constexpr void (*expectFor())(void*, size_t) {
        if constexpr (requires(Callable & fn, size_t n) { fn.expect(n); })
            return [](void* callable, size_t total) {
                static_cast<Callable*>(callable)->expect(total);
            };
        else
            return nullptr;
    }

    template <class Callable> static constexpr bool (*withoutEffectFor())(void*) {
        if constexpr (requires(Callable & fn) { fn.visitsWithoutEffect(); })
            return [](void* callable) {
                return static_cast<Callable*>(callable)->visitsWithoutEffect();
            };
        else
            return nullptr;
    }

    void* m_callable;
    bool (*m_call)(void*, const SgxSimplePtr<TNObject>&);
    bool (*m_callEach)(void*, const SgxSimplePtr<TNObject>*, size_t, bool);
    void (*m_expect)(void*, size_t);
    bool (*m_withoutEffect)(void*);
};

// Nodes yielding a sequence of model objects.
class TARNEL_API TNObjectCollectionExpr : public SgxObject, public SgxCyclicPtrBody {
public:
    using Result = TNObjectSequence;
    TNObjectCollectionExpr() = default;
    TNObjectCollectionExpr(const TNObjectCollectionExpr&) = default;
    TNObjectCollectionExpr& operator=(const TNObjectCollectionExpr&) = default;
    ~TNObjectCollectionExpr() override = 0;
    virtual TNObjectSequence operator()() const = 0;
    // operator()().size(), with the same evaluations and failures. Nodes that can count without
    // building the sequence override it, so that counting (TNCountExpr) stays cheap.
    virtual size_t count() const { return (*this)().size(); }
    // Hands `visit` the elements of operator()() in order until it answers false, with the same
    // evaluations and failures as operator()() (all of them, before the first visit). Nodes that
    // can hand over elements where they lie, evaluating nothing on the way, override it, so
    // that the nodes consuming a sequence (filter, map, quantifiers) build no copy of it.
    virtual void forEach(const TNObjectVisitor& visit) const;

private:
    [[no_unique_address]] tn_detail::GraphChangeOnAssign m_graphChange;
};

// Nodes yielding a sequence of texts.
class TARNEL_API TNStringCollectionExpr : public SgxObject, public SgxCyclicPtrBody {
public:
    using Result = TNStringSequence;
    TNStringCollectionExpr() = default;
    TNStringCollectionExpr(const TNStringCollectionExpr&) = default;
    TNStringCollectionExpr& operator=(const TNStringCollectionExpr&) = default;
    ~TNStringCollectionExpr() override = 0;
    virtual TNStringSequence operator()() const = 0;

private:
    [[no_unique_address]] tn_detail::GraphChangeOnAssign m_graphChange;
};

// Operand pointers of each family.
using TNValueExprPtr = SgxCyclicPtr<TNValueExpr>;
using TNObjectExprPtr = SgxCyclicPtr<TNObjectExpr>;
using TNObjectCollectionExprPtr = SgxCyclicPtr<TNObjectCollectionExpr>;
using TNStringCollectionExprPtr = SgxCyclicPtr<TNStringCollectionExpr>;

// A node holding a cache that its enclosing Let clears after each evaluation (the Binding nodes).
// Never deleted through this interface.
class TARNEL_API TNCachedExpr {
public:
    // Forgets the cached result: the next evaluation computes it anew.
    virtual void flushCache() const = 0;

protected:
    TNCachedExpr() = default;
    TNCachedExpr(const TNCachedExpr&) = default;
    TNCachedExpr& operator=(const TNCachedExpr&) = default;
    ~TNCachedExpr() = default;
};

// ---------------------------------------------------------------------------------------------
// Shared mechanics of node classes. A node class lists, after its public part:
//   - its constructors (default, and from its operands in field order; copy and assignment stay
//     implicit: they share the operands, since a copied SgxCyclicPtr never owns);
//   - operator()() const, its evaluation, the one thing that is the node's own;
//   - prepareForDeletion() const, calling tnClaimOperands over its pointer fields in field order;
//   - one TN_EXPR_FIELD per field, in field order.

// Declares the field m_<name> of type Type, default-initialised (null pointer, operator 0,
// false), with its getter name() const, which returns a copy (a copied pointer never owns), and
// its setter name(const Type&), a plain assignment that never deletes the operand it replaces.
// The field is a tn_detail::GraphField: every assignment to it, by the setter, a node assigned
// over another or a restore, counts as a change to the graph (tn_detail::graphChanges), and the
// node's code can read it but not change it otherwise. Leaves the class in its private section.
#define TN_EXPR_FIELD(Type, name)                                                                  \
public:                                                                                            \
    Type name() const { return m_##name; }                                                         \
    void name(const Type& new_##name) { m_##name = new_##name; }                                   \
                                                                                                   \
private:                                                                                           \
    tn_detail::GraphField<Type> m_##name {}

// The operand `operand` of `node`, for evaluating it: `*operand` (operator*() const), or
// `operand.operator->()` for tnVariable. A null operand raises what that access raises; a checked
// build raises the same text as a TNEvaluationException naming `node`'s class.
template <class Node, class T>
inline T& tnOperand(const Node& node, const SgxCyclicPtr<T>& operand) {
    if constexpr (TARNEL_CHECKED_BUILD != 0)
        if (operand.get() == nullptr) [[unlikely]]
            tn_detail::raiseUnsetOperand(typeid(node), false);
    return *operand;
}
template <class Node, class T>
inline T& tnVariable(const Node& node, const SgxCyclicPtr<T>& variable) {
    if constexpr (TARNEL_CHECKED_BUILD != 0)
        if (variable.get() == nullptr) [[unlikely]]
            tn_detail::raiseUnsetOperand(typeid(node), true);
    return *variable.operator->();
}

// What tnVisitOperands hands each operand of a node to: the operand's node, null when unset.
using TNOperandVisitor = std::function<void(const SgxCyclicPtrBody* operand)>;

namespace tn_detail {
// The visitor that tnVisitOperands is listing a node's operands to on this thread, or null.
TARNEL_API const TNOperandVisitor* operandListing() noexcept;
} // namespace tn_detail

// The body of prepareForDeletion(): claims each operand pointer, left to right. While
// tnVisitOperands runs prepareForDeletion() to list a node's operands, it hands them to the
// visitor instead and claims nothing.
template <class... Nodes> inline void tnClaimOperands(const SgxCyclicPtr<Nodes>&... operands) {
    if (const TNOperandVisitor* listing = tn_detail::operandListing()) [[unlikely]] {
        ((*listing)(operands.get()), ...);
        return;
    }
    (operands.takeOwnership(), ...);
}

// Ours, for walks over a whole graph (tnCheckExpression, TNExprCheck.h). Hands `visit` the
// operands of expression node `node`, in field order, unset ones as null, and claims nothing.
// The list is the one node.prepareForDeletion() claims, so it is written once per node class:
// this runs prepareForDeletion() with tnClaimOperands listing instead of claiming. A node class
// of the host's own is listed when its prepareForDeletion() claims through tnClaimOperands, as
// every node class of the library does. A Let's binding is no operand (it is reached through the
// Let's body). Raises what `visit` raises.
TARNEL_API void tnVisitOperands(const SgxCyclicPtrBody& node, const TNOperandVisitor& visit);

// ---------------------------------------------------------------------------------------------
// Object variables.

// An object variable: yields the object last set, by the host or by an abstraction binding it.
// Made without an object it yields null; a checked build raises TNEvaluationException ("Unbound
// variable: ...", naming this node's class) when it is evaluated before any object, null
// included, was bound to it.
class TARNEL_API TNObjectVarExpr : public TNObjectExpr {
public:
    TNObjectVarExpr() = default;
    explicit TNObjectVarExpr(const SgxSimplePtr<TNObject>& object)
        : m_object(object), m_bound(true) {}

    SgxSimplePtr<TNObject> operator()() const override {
        if constexpr (TARNEL_CHECKED_BUILD != 0)
            if (!m_bound) [[unlikely]]
                tn_detail::raiseUnboundVariable(typeid(*this));
        return m_object;
    }
    void prepareForDeletion() const override {}

    SgxSimplePtr<TNObject> object() const { return m_object; }
    // Binds the variable, which changes what the graph yields but not the graph.
    void object(const SgxSimplePtr<TNObject>& object) {
        m_object = object;
        if constexpr (TARNEL_CHECKED_BUILD != 0)
            m_bound = true;
    }

private:
    SgxSimplePtr<TNObject> m_object;
    // Whether an object was ever bound; kept up to date by checked builds only.
    bool m_bound = false;
};

// ---------------------------------------------------------------------------------------------
// Templates behind the framework nodes, one per kind of node, instantiated once per family.

// Abstraction: a one-parameter function from an object to a Family result. Not a family member.
template <class Family> class TARNEL_API TNAbsNode : public SgxObject, public SgxCyclicPtrBody {
public:
    using Result = typename Family::Result;

    TNAbsNode() = default;
    TNAbsNode(const SgxCyclicPtr<TNObjectVarExpr>& contextObject, const SgxCyclicPtr<Family>& expr)
        : m_contextObject(contextObject), m_expr(expr) {}

    // Binds `object` to the variable (which keeps it afterwards) and evaluates the body.
    Result operator()(const SgxSimplePtr<TNObject>& object) const {
        tnVariable(*this, m_contextObject).object(object);
        return tnOperand(*this, m_expr)();
    }
    // operator()(object).asBoolean(), through TNValueExpr::test(). Value abstractions only.
    bool test(const SgxSimplePtr<TNObject>& object) const {
        static_assert(std::is_same_v<Family, TNValueExpr>, "only a value abstraction tests");
        tnVariable(*this, m_contextObject).object(object);
        return tnOperand(*this, m_expr).test();
    }
    void prepareForDeletion() const override { tnClaimOperands(m_contextObject, m_expr); }

    TN_EXPR_FIELD(SgxCyclicPtr<TNObjectVarExpr>, contextObject);
    TN_EXPR_FIELD(SgxCyclicPtr<Family>, expr);
    [[no_unique_address]] tn_detail::GraphChangeOnAssign m_graphChange;
};

// Binding: evaluates expr on first use and returns that result until flushCache(). The flag is
// raised before expr runs, so a path from expr back to this binding yields the result held at
// that moment instead of recursing; if expr raises, the binding stays cached with its old result.
// A copy also copies the flag and the cached result.
template <class Family> class TARNEL_API TNBindingNode : public Family, public TNCachedExpr {
public:
    using Result = typename Family::Result;

    TNBindingNode() = default;
    explicit TNBindingNode(const SgxCyclicPtr<Family>& expr) : m_expr(expr) {}

    Result operator()() const override { return resultInPlace(); }
    // What operator()() returns, where the binding keeps it (valid until the binding is flushed
    // or its result set), with the same evaluations and failures.
    const Result& resultInPlace() const {
        if (!m_cached) {
            m_cached = true;
            m_value = tnOperand(*this, m_expr)();
        }
        return m_value;
    }
    void flushCache() const override {
        m_cached = false;
        m_value = Result();
    }
    void prepareForDeletion() const override { tnClaimOperands(m_expr); }

    bool cached() const { return m_cached; }
    void cached(const bool& newCached) { m_cached = newCached; }
    // The cached result.
    Result value() const { return m_value; }
    void value(const Result& newValue) { m_value = newValue; }

private:
    mutable bool m_cached = false;
    mutable Result m_value{};
    TN_EXPR_FIELD(SgxCyclicPtr<Family>, expr);
};

// Let: evaluates expr, then flushes the binding, so a binding used anywhere in expr is computed
// at most once per evaluation of the Let. The binding is neither evaluated here nor owned: it
// must be reachable from expr. If expr raises, the flush is skipped.
template <class Family> class TARNEL_API TNLetNode : public Family {
public:
    using Result = typename Family::Result;

    TNLetNode() = default;
    TNLetNode(const SgxSimplePtr<TNCachedExpr>& binding, const SgxCyclicPtr<Family>& expr)
        : m_binding(binding), m_expr(expr) {}

    Result operator()() const override {
        Result result = tnOperand(*this, m_expr)();
        m_binding->flushCache();
        return result;
    }
    void prepareForDeletion() const override { tnClaimOperands(m_expr); }

    TN_EXPR_FIELD(SgxSimplePtr<TNCachedExpr>, binding);
    TN_EXPR_FIELD(SgxCyclicPtr<Family>, expr);
};

// If: evaluates testExpr as a truth value (TNValue::asBoolean), then only the chosen branch.
template <class Family> class TARNEL_API TNIfNode : public Family {
public:
    using Result = typename Family::Result;

    TNIfNode() = default;
    TNIfNode(const TNValueExprPtr& testExpr, const SgxCyclicPtr<Family>& thenExpr,
             const SgxCyclicPtr<Family>& elseExpr)
        : m_testExpr(testExpr), m_thenExpr(thenExpr), m_elseExpr(elseExpr) {}

    Result operator()() const override {
        return tnOperand(*this, m_testExpr).test() ? tnOperand(*this, m_thenExpr)()
                                                   : tnOperand(*this, m_elseExpr)();
    }
    void prepareForDeletion() const override {
        tnClaimOperands(m_testExpr, m_thenExpr, m_elseExpr);
    }

    TN_EXPR_FIELD(TNValueExprPtr, testExpr);
    TN_EXPR_FIELD(SgxCyclicPtr<Family>, thenExpr);
    TN_EXPR_FIELD(SgxCyclicPtr<Family>, elseExpr);
};

// Declares the framework node `Name` as the template instance `Node`, with its constructors.
#define TN_FRAMEWORK_NODE(Name, Node)                                                              \
    class TARNEL_API Name : public Node {                                                          \
        using Base = Node;                                                                         \
                                                                                                   \
    public:                                                                                        \
        using Base::Base;                                                                          \
    }

// ---------------------------------------------------------------------------------------------
// The framework nodes.

// Abstractions: contextObject, expr. Called as abs(object).
TN_FRAMEWORK_NODE(TNValueAbsExpr, TNAbsNode<TNValueExpr>);
TN_FRAMEWORK_NODE(TNObjectAbsExpr, TNAbsNode<TNObjectExpr>);
TN_FRAMEWORK_NODE(TNObjectCollectionAbsExpr, TNAbsNode<TNObjectCollectionExpr>);
TN_FRAMEWORK_NODE(TNStringCollectionAbsExpr, TNAbsNode<TNStringCollectionExpr>);

// Bindings: cached, value, expr.
TN_FRAMEWORK_NODE(TNValueBindingExpr, TNBindingNode<TNValueExpr>);
TN_FRAMEWORK_NODE(TNObjectBindingExpr, TNBindingNode<TNObjectExpr>);
TN_FRAMEWORK_NODE(TNObjectCollectionBindingExpr, TNBindingNode<TNObjectCollectionExpr>);
TN_FRAMEWORK_NODE(TNStringCollectionBindingExpr, TNBindingNode<TNStringCollectionExpr>);

// Lets: binding, expr.
TN_FRAMEWORK_NODE(TNLetValueExpr, TNLetNode<TNValueExpr>);
TN_FRAMEWORK_NODE(TNLetObjectExpr, TNLetNode<TNObjectExpr>);
TN_FRAMEWORK_NODE(TNLetObjectCollectionExpr, TNLetNode<TNObjectCollectionExpr>);
TN_FRAMEWORK_NODE(TNLetStringCollectionExpr, TNLetNode<TNStringCollectionExpr>);

// Conditionals: testExpr, thenExpr, elseExpr.
TN_FRAMEWORK_NODE(TNIfValueExpr, TNIfNode<TNValueExpr>);
TN_FRAMEWORK_NODE(TNIfObjectExpr, TNIfNode<TNObjectExpr>);
TN_FRAMEWORK_NODE(TNIfObjectCollectionExpr, TNIfNode<TNObjectCollectionExpr>);
TN_FRAMEWORK_NODE(TNIfStringCollectionExpr, TNIfNode<TNStringCollectionExpr>);

// Application: evaluates parameter to an object first, then calls abstraction with it.
class TARNEL_API TNApplyValueExpr : public TNValueExpr {
public:
    TNApplyValueExpr() = default;
    TNApplyValueExpr(const SgxCyclicPtr<TNValueAbsExpr>& abstraction,
                     const TNObjectExprPtr& parameter)
        : m_abstraction(abstraction), m_parameter(parameter) {}

    TNValue operator()() const override {
        const SgxSimplePtr<TNObject> object = tnOperand(*this, m_parameter)();
        return tnOperand(*this, m_abstraction)(object);
    }
    void prepareForDeletion() const override { tnClaimOperands(m_abstraction, m_parameter); }

    TN_EXPR_FIELD(SgxCyclicPtr<TNValueAbsExpr>, abstraction);
    TN_EXPR_FIELD(TNObjectExprPtr, parameter);
};

// --- End of public API: what follows is the library's own ---

namespace tn_detail {
// Advanced by every change to a node of any expression or traversal graph that can change what
// the graph computes: a setter, a node assigned over another, a node read back from a stream.
// Binding a variable is no such change. Nodes that derive a plan from the shape of the nodes
// below them (a filter recognizing an attribute test, a traversal recognizing a closure) keep it
// while the counter stays where it was: a node cannot tell which graphs another node is part of.
TARNEL_API extern std::atomic<uint64_t> graphChanges;
inline void graphChanged() noexcept { graphChanges.fetch_add(1, std::memory_order_relaxed); }

// What a node derived from the shape of its graph, with the graphChanges it was derived at.
// Copies start empty, so that a copied node derives its own.
template <class Plan> class ShapeCache {
public:
    ShapeCache() = default;
    ShapeCache(const ShapeCache&) noexcept {}
    ShapeCache& operator=(const ShapeCache&) noexcept {
        seen = 0;
        return *this;
    }
    // The plan, derived anew by derive(Plan&) from an empty one when some graph has changed
    // since it was last derived.
    template <class Derive> Plan& get(Derive derive) {
        const uint64_t now = graphChanges.load(std::memory_order_relaxed);
        if (seen != now) [[unlikely]]
            rederive(derive, now);
        return plan;
    }
    // The plan as last derived, or null when some graph has changed since (or none was).
    const Plan* current() const noexcept {
        return seen == graphChanges.load(std::memory_order_relaxed) ? &plan : nullptr;
    }

private:
    // Out of line, so that get() inlines to a load and a comparison.
    template <class Derive> [[gnu::noinline]] void rederive(Derive& derive, uint64_t now) {
        plan = Plan();
        derive(plan);
        seen = now;
    }

    uint64_t seen = 0; // graphChanges starts at 1
    Plan plan{};
};

// A sequence that a node gathers elements into during one evaluation and keeps, emptied, for the
// next, so that a node evaluated once per object of a report allocates nothing once it has run.
// A copy of the node starts without one; an evaluation nested inside another of the same node
// (from a visitor) gathers into a sequence of its own; a sequence grown past a few thousand
// elements is freed after use rather than kept.
class KeptSequence {
public:
    KeptSequence() = default;
    KeptSequence(const KeptSequence&) noexcept {}
    KeptSequence& operator=(const KeptSequence&) noexcept { return *this; }

    // Calls use(sequence) with an empty sequence: the kept one unless it is in use.
    template <class Use> void use(Use&& use) {
        if (m_inUse) {
            TNObjectSequence own;
            use(own);
            return;
        }
        struct Release {
            KeptSequence& kept;
            ~Release() {
                kept.m_sequence.clear();
                if (kept.m_sequence.capacity() > maxKept)
                    TNObjectSequence().swap(kept.m_sequence);
                kept.m_inUse = false;
            }
        } release{*this};
        m_inUse = true;
        use(m_sequence);
    }

private:
    static constexpr size_t maxKept = 4096;
    TNObjectSequence m_sequence;
    bool m_inUse = false;
};

// A ShapeCache whose plan type only the library's sources know (see shapeCacheIn in
// internal/TNCollectionPlan.h), so that a public header need not declare the plan. It is made
// when first asked for and kept for the node's life: no evaluation allocates. Copies start empty.
class OpaqueShapeCache {
public:
    OpaqueShapeCache() = default;
    OpaqueShapeCache(const OpaqueShapeCache&) noexcept {}
    OpaqueShapeCache& operator=(const OpaqueShapeCache&) noexcept {
        release();
        return *this;
    }
    ~OpaqueShapeCache() { release(); }

    void* m_cache = nullptr;                  // a ShapeCache<Plan>, or null
    void (*m_free)(void*) noexcept = nullptr; // deletes m_cache as what it is

private:
    void release() noexcept {
        if (m_cache != nullptr)
            m_free(m_cache);
        m_cache = nullptr;
    }
};
} // namespace tn_detail
