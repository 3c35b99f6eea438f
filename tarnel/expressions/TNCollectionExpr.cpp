#include "tarnel/expressions/TNCollectionExpr.h"

#include "sgx/general/SgxException.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/internal/TNCollectionPlan.h"
#include "tarnel/expressions/internal/TNPlan.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/internal/TNTraversalPlan.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <typeinfo>
#include <unordered_set>
#include <utility>

namespace {

using SortKeys = std::vector<TNSortExpr::SortKey>;

// How many elements ahead of the one evaluated a walk that reads each element's slots starts
// loading them, and what it loads: the object's first two lines, where the slots of a class's
// first attributes lie. So the waits for memory of several elements overlap; a guess that
// misses costs time only.
constexpr size_t elementsAhead = 8;
inline void loadObject(const TNObject* object) {
    __builtin_prefetch(object);
    __builtin_prefetch(reinterpret_cast<const char*>(object) + 64);
}

// Appends the elements of `collection` to `out` as its forEach hands them over, with the same
// evaluations and failures as evaluating it.
void gather(const TNObjectCollectionExpr& collection, TNObjectSequence& out) {
    struct Append {
        TNObjectSequence& out;
        bool operator()(const SgxSimplePtr<TNObject>& element) const {
            out.push_back(element);
            return true;
        }
        bool operator()(const SgxSimplePtr<TNObject>* first, size_t count, bool) const {
            out.insert(out.end(), first, first + count);
            return true;
        }
    };
    collection.forEach(Append{out});
}

// Sorts v[first, last) by `before` with a merge sort that only ever touches positions inside the
// range, whatever `before` answers. Sort keys may make the comparison inconsistent (TNVNone is
// less than itself, NaN compares false both ways, a key may change between evaluations), and the
// standard sorts' unguarded loops can run off the range then. Stable, so ties keep their order,
// which is one of the orders the sort leaves open.
template <class T, class Before>
void mergeSort(std::vector<T>& v, size_t first, size_t last, Before before) {
    const size_t n = last - first;
    std::vector<T> buffer(v.begin() + static_cast<ptrdiff_t>(first),
                          v.begin() + static_cast<ptrdiff_t>(last));
    std::vector<T> merged(n);
    for (size_t width = 1; width < n; width *= 2) {
        for (size_t lo = 0; lo < n; lo += 2 * width) {
            const size_t mid = std::min(lo + width, n);
            const size_t hi = std::min(lo + 2 * width, n);
            size_t i = lo, j = mid, out = lo;
            while (i < mid && j < hi)
                merged[out++] = before(buffer[j], buffer[i]) ? buffer[j++] : buffer[i++];
            while (i < mid)
                merged[out++] = buffer[i++];
            while (j < hi)
                merged[out++] = buffer[j++];
        }
        buffer.swap(merged);
    }
    std::copy(buffer.begin(), buffer.end(), v.begin() + static_cast<ptrdiff_t>(first));
}

bool ordered(const TNSortExpr::SortKey& key, const TNValue& a, const TNValue& b) {
    return key.ascending ? a < b : b < a;
}

// The keys of one sort, and for each whether it is evaluated once per element (rule 7,
// TNPlan.h): its body has no effect but its value (tn_detail::effectFree) and its variable is a
// plain one, so evaluating it again for each comparison could only repeat the same value. The
// answers are a bit per key (keys past the 64th are evaluated per comparison), found once per
// graph change and kept in the sort node's plan (SortOnce).
struct SortOnce {
    uint64_t once = 0;
};
uint64_t onceKeys(const SortKeys& keys) {
    uint64_t once = 0;
    for (size_t k = 0; k < keys.size() && k < 64; ++k) {
        const TNValueAbsExpr* key = keys[k].key.get();
        const TNObjectVarExpr* variable = key != nullptr ? key->contextObject().get() : nullptr;
        const TNValueExpr* body = key != nullptr ? key->expr().get() : nullptr;
        if (variable != nullptr && body != nullptr &&
            tn_detail::isExactly<TNObjectVarExpr>(*variable) && tn_detail::effectFree(*body))
            once |= uint64_t(1) << k;
    }
    return once;
}
struct SortPlan {
    const SortKeys& keys;
    uint64_t once;
    bool isOnce(size_t k) const { return k < 64 && ((once >> k) & 1) != 0; }
};

void sortRange(TNObjectSequence& seq, size_t first, size_t last, const SortPlan& plan, size_t k);

// Walks a range sorted by key k, sorting each run of equal key values by the remaining keys.
// The caller has taken the key of the first element; startsRun(i, runStart) takes element i's
// key (evaluating it, or reading a value computed before) and tells whether it differs from the
// run's. Sorting a run only moves elements before the walk's position.
template <class StartsRun>
void sortRuns(TNObjectSequence& seq, size_t first, size_t last, const SortPlan& plan, size_t k,
              StartsRun startsRun) {
    size_t runStart = first;
    for (size_t i = first + 1; i < last; ++i) {
        if (startsRun(i, runStart)) {
            sortRange(seq, runStart, i, plan, k + 1);
            runStart = i;
        }
    }
    sortRange(seq, runStart, last, plan, k + 1);
}

// Sorts seq[first, last) by key k evaluated once per element, in order: each value kept as a
// view (numbers in it, texts where they lie: a slot, a constant, or else a value kept here),
// then (value, element) pairs sorted stably, compared as TNValue compares the values. False,
// with nothing sorted, when an evaluation raises: the caller then evaluates comparison by
// comparison, which raises what it raises (the evaluations done here having had no effect).
bool sortByKeyValues(TNObjectSequence& seq, size_t first, size_t last, const SortPlan& plan,
                     size_t k) {
    const TNValueAbsExpr& abs = *plan.keys[k].key;
    TNObjectVarExpr& variable = *abs.contextObject();
    const TNValueExpr& body = *abs.expr();
    const tn_detail::Route route = tn_detail::routeOf(body);
    const size_t n = last - first;
    std::vector<tn_detail::ValueView> values(n);
    // Texts made by evaluating, which lie nowhere else, one after another in one text that
    // grows by doubling (each followed by a NUL), found by their offsets once all are made; a
    // text sum is appended there directly (rule 5).
    SgxString made;
    std::vector<std::pair<size_t, size_t>> madeAt; // (element, offset in made)
    const auto* sum = tn_detail::isExactly<TNArithmeticExpr>(body)
                          ? static_cast<const TNArithmeticExpr*>(&body)
                          : nullptr;
    if (sum != nullptr && sum->op() != TNArithmeticExpr::TNPlus)
        sum = nullptr;
    try {
        TNValue scratch;
        for (size_t i = 0; i < n; ++i) {
            if (i + elementsAhead < n)
                loadObject(seq[first + i + elementsAhead].get());
            variable.object(seq[first + i]);
            tn_detail::ValueView& value = values[i];
            if (sum != nullptr) {
                const size_t at = made.size();
                if (sum->sumInto(made, scratch)) {
                    made.push_back('\0');
                    value.type = TNVString;
                    madeAt.emplace_back(i, at);
                    continue;
                }
            }
            const tn_detail::ValueView view = sum != nullptr
                                                  ? tn_detail::ValueView{.value = &scratch}
                                                  : tn_detail::viewByRoute(route, body, scratch);
            value.type = view.myType();
            switch (value.type) {
            case TNVInt:
            case TNVBoolean:
                value.integer = view.value != nullptr ? view.value->asLongInt() : view.integer;
                break;
            case TNVDouble:
                value.real = view.value != nullptr ? view.value->asDouble() : view.real;
                break;
            case TNVString:
                if (view.value == &scratch) {
                    madeAt.emplace_back(i, made.size());
                    made.append(scratch.text()).push_back('\0');
                } else {
                    value.text = view.textOrNull();
                }
                break;
            default:
                break;
            }
        }
    } catch (...) {
        return false;
    }
    for (const auto& [i, at] : madeAt)
        values[i].text = made.data() + at;
    // (value, element) pairs, small enough that the sort moves little.
    struct Item {
        const tn_detail::ValueView* value;
        TNObject* object;
    };
    std::vector<Item> items(n);
    for (size_t i = 0; i < n; ++i)
        items[i] = {&values[i], seq[first + i].get()};
    // Keys of one kind compare as TNValue compares them, without a call: texts byte-wise,
    // integers and truth values by their integers, reals by value. Such comparisons are a strict
    // weak order (reals without NaN), so the library's stable sort serves; any other mix goes
    // through the merge sort that survives inconsistent answers.
    const bool ascending = plan.keys[k].ascending;
    const auto kind = [&](auto accepts) {
        return std::all_of(values.begin(), values.end(), accepts);
    };
    const auto sortBy = [&](auto less) {
        std::stable_sort(items.begin(), items.end(), [&](const Item& a, const Item& b) {
            return ascending ? less(*a.value, *b.value) : less(*b.value, *a.value);
        });
    };
    using View = tn_detail::ValueView;
    if (kind([](const View& v) { return v.type == TNVString; }))
        sortBy([](const View& a, const View& b) { return std::strcmp(a.text, b.text) < 0; });
    else if (kind([](const View& v) { return v.type == TNVInt || v.type == TNVBoolean; }))
        sortBy([](const View& a, const View& b) { return a.integer < b.integer; });
    else if (kind([](const View& v) { return v.type == TNVDouble && !std::isnan(v.real); }))
        sortBy([](const View& a, const View& b) { return a.real < b.real; });
    else
        mergeSort(items, 0, n, [&](const Item& a, const Item& b) {
            return ascending ? tn_detail::viewLess(*a.value, *b.value)
                             : tn_detail::viewLess(*b.value, *a.value);
        });
    for (size_t i = 0; i < n; ++i)
        seq[first + i] = items[i].object;
    // The walk reads the values in place and binds the variable to each element in turn, as
    // evaluating the key would.
    variable.object(seq[first]);
    sortRuns(seq, first, last, plan, k, [&](size_t i, size_t runStart) {
        variable.object(seq[i]);
        const tn_detail::ValueView& a = *items[i - first].value;
        const tn_detail::ValueView& b = *items[runStart - first].value;
        if (a.type == TNVString && b.type == TNVString)
            return std::strcmp(a.text, b.text) != 0;
        return !tn_detail::viewEquals(a, b);
    });
    return true;
}

void sortRange(TNObjectSequence& seq, size_t first, size_t last, const SortPlan& plan, size_t k) {
    if (last - first < 2 || k >= plan.keys.size())
        return;
    const TNSortExpr::SortKey& key = plan.keys[k];
    if (plan.isOnce(k) && sortByKeyValues(seq, first, last, plan, k))
        return;
    const TNValueAbsExpr& abs = *key.key;
    mergeSort(seq, first, last,
              [&](const SgxSimplePtr<TNObject>& a, const SgxSimplePtr<TNObject>& b) {
                  const TNValue keyA = abs(a);
                  const TNValue keyB = abs(b);
                  return ordered(key, keyA, keyB);
              });
    TNValue runValue = abs(seq[first]);
    sortRuns(seq, first, last, plan, k, [&](size_t i, size_t /*runStart*/) {
        TNValue value = abs(seq[i]);
        if (value == runValue)
            return false;
        runValue = std::move(value);
        return true;
    });
}

[[noreturn, gnu::cold]] void raiseExtraction(const char* text) { SgxException::raise(text); }

// A predicate x -> attr(name, x) == constant (or !=), x a plain variable, the filter of most
// reports. A filter evaluates it by binding x and comparing the slot itself: the same effects as
// evaluating the predicate, without its calls through four nodes per element.
//
// Within one walk over a collection, the comparison for a class (`prepared`, kept in the
// filter's plan from one walk to the next) is checked or taken out of the attribute node's
// caches once, at the first element of that class, and the following elements of the class
// cost a slot read. Nothing a walk calls changes the schema, so a class stays what it was until
// the walk ends; between walks it may change, which the check at a walk's first element sees.
struct AttributeTest {
    TNObjectVarExpr* variable;
    const TNAttrExpr* attr;
    const TNConstantExpr* constant;
    bool negated;
    tn_detail::EnumComparison& prepared;
    ptrdiff_t& slotDistance;
    const TNClass* verified = nullptr; // the class `prepared` is known to hold for in this walk

    explicit AttributeTest(tn_detail::AttributeTestPlan& plan)
        : variable(plan.variable), attr(plan.attr), constant(plan.constant), negated(plan.negated),
          prepared(plan.prepared), slotDistance(plan.slotDistance) {}

    // Compares in full, as the predicate would.
    bool inFull(const SgxSimplePtr<TNObject>& element) const {
        variable->object(element);
        return attr->equalsOn(element, *constant) != negated;
    }
    bool operator()(const SgxSimplePtr<TNObject>& element) {
        const TNObject* object = element.get();
        bool keeps = false;
        if (object != nullptr && object->getClass().get() == verified && verified != nullptr &&
            fromSlot(element, (*object)[*prepared.desc], keeps)) [[likely]]
            return keeps;
        return firstOfClass(element);
    }
    // Whether the comparison holds for objects of `cls` in this walk: verified already, or
    // checked now (as a walk before this one left it; the nodes have not changed since, or the
    // plan would be gone), or taken out of the attribute node's caches as an element of `cls`
    // left them.
    bool prepare(const TNClass* cls, const SgxSimplePtr<TNObject>& element) {
        if (cls == nullptr) // an object without a class: only the full comparison reports it
            return false;
        if (cls != verified &&
            (prepared.holdsFor(cls) || attr->enumComparison(element, *constant, prepared))) {
            verified = cls;
            slotDistance = TNObject::slotDistance(*prepared.desc);
        }
        return cls == verified;
    }
    [[gnu::noinline]] bool firstOfClass(const SgxSimplePtr<TNObject>& element) {
        if (element.get() == nullptr)
            return inFull(element);
        const TNClass* cls = element->getClass().get();
        bool keeps = false;
        if (prepare(cls, element))
            return fromSlot(element, (*element)[*prepared.desc], keeps) ? keeps : inFull(element);
        // Compared in full, the element leaves the caches the comparison is prepared from.
        const bool kept = inFull(element);
        prepare(cls, element);
        return kept;
    }
    // Compares first[from], first[from + 1], ... (objects of one array that are all originals of
    // `verified`) by their slots alone, handing `keep` those kept, and stops at the first index
    // outside the type, which only the full comparison reports; answers where it stopped. The
    // prepared slot is an enumeration in every object, so its literal index is read without its
    // descriptor, at the offset it has in the first. The variable is bound once, to the last
    // element compared, as comparing each would leave it.
    template <class Keep>
    size_t compareUniform(const SgxSimplePtr<TNObject>* first, size_t from, size_t count,
                          Keep& keep) const {
        const TNObject& model = *first[0].get();
        const TNAttribute& modelSlot = model[*prepared.desc];
        // In locals, which the stores of `keep` cannot reach.
        const size_t literalCount = prepared.literalCount;
        const int64_t literal = prepared.literal;
        const bool negate = negated;
        size_t i = from;
        for (; i < count; ++i) {
            // A negative index, as unsigned, is past every type's literals.
            const auto index = static_cast<uint64_t>(static_cast<int64_t>(
                tn_detail::sameSlot(model, modelSlot, *first[i].get()).integerInPlace()));
            if (index >= literalCount)
                break;
            if ((static_cast<int64_t>(index) == literal) != negate)
                keep(first[i]);
        }
        if (i > from)
            variable->object(first[i - 1]);
        return i;
    }
    // Settles the comparison of `element` from `slot` when it holds a literal of the prepared
    // type: binds the variable and sets `keeps`. False, binding nothing, for an index outside the
    // type, which only the full comparison reports.
    bool fromSlot(const SgxSimplePtr<TNObject>& element, const TNAttribute& slot,
                  bool& keeps) const {
        const int64_t index = slot.asLongInt();
        if (index < 0 || static_cast<size_t>(index) >= prepared.literalCount)
            return false;
        variable->object(element);
        keeps = (index == prepared.literal) != negated;
        return true;
    }
};

// The body of `abstraction` when it is exactly a `Body` node and the variable exactly a
// TNObjectVarExpr, which `variable` is then set to; null otherwise.
template <class Body>
const Body* plainBody(const TNValueAbsExpr* abstraction, TNObjectVarExpr*& variable) {
    if (abstraction == nullptr)
        return nullptr;
    variable = abstraction->contextObject().get();
    const TNValueExpr* body = abstraction->expr().get();
    if (variable == nullptr || typeid(*variable) != typeid(TNObjectVarExpr) || body == nullptr ||
        typeid(*body) != typeid(Body))
        return nullptr;
    return static_cast<const Body*>(body);
}

// Fills in `plan` when `predicate` is an attribute test; leaves it empty otherwise.
void recognizeAttributeTest(const TNValueAbsExpr* predicate, tn_detail::AttributeTestPlan& plan) {
    if (predicate != nullptr)
        tn_detail::recognizePredicate(predicate->expr().get(), predicate->contextObject().get(),
                                      plan.predicate);
    TNObjectVarExpr* variable = nullptr;
    const auto* test = plainBody<TNRelationalExpr>(predicate, variable);
    if (test == nullptr)
        return;
    const TNRelationalExpr& relational = *test;
    const TNValueExpr* lhs = relational.lhs().get();
    const TNValueExpr* rhs = relational.rhs().get();
    const TNRelationalExpr::TNRelOp op = relational.op();
    if ((op != TNRelationalExpr::TNEqual && op != TNRelationalExpr::TNNotEqual) || lhs == nullptr ||
        rhs == nullptr || typeid(*lhs) != typeid(TNAttrExpr) ||
        typeid(*rhs) != typeid(TNConstantExpr))
        return;
    const auto& attr = static_cast<const TNAttrExpr&>(*lhs);
    if (attr.object().get() != variable)
        return;
    plan.variable = variable;
    plan.attr = &attr;
    plan.constant = static_cast<const TNConstantExpr*>(rhs);
    plan.negated = op == TNRelationalExpr::TNNotEqual;
}

// A total no collection has announced (TNObjectVisitor::expect).
constexpr size_t unknownTotal = SIZE_MAX;

// Hands `keep` the elements of `collection` that `predicate` accepts, in order; `filter` holds
// them, and what its predicate was recognized as (TNFilterExpr::attributeTest).
template <class Keep>
void filterInto(const TNFilterExpr& filter, const TNObjectCollectionExpr& collection,
                const SgxCyclicPtr<TNValueAbsExpr>& predicate, Keep keep) {
    // A slot test (rule 6, TNPlan.h) decides from each element's slot, the variable bound to
    // each in turn; it is planned at the first element, after every evaluation of the
    // collection, which may change the graph.
    struct Visit {
        const TNFilterExpr& filter;
        const SgxCyclicPtr<TNValueAbsExpr>& predicate;
        const TNObjectCollectionExpr& collection;
        Keep& keep;
        std::optional<tn_detail::SlotTest>& test;
        std::optional<tn_detail::CompoundTest>& compound; // where test is none
        bool& planned;
        size_t& total; // what the collection said it hands over (expect), or unknownTotal
        bool& streamChecked;
        bool& streaming; // the variable bound to the last element, and left there

        void plan() const {
            tn_detail::planPredicateOnce(planned, test, compound,
                                         [&]() -> const tn_detail::PredicatePlan& {
                                             return filter.attributeTest().predicate;
                                         });
        }
        // keep(element) where `kept`; a Keep that only counts adds without a branch, so that
        // a walk deciding from slots need not wait for each slot before reading the next.
        void keepIf(bool kept, const SgxSimplePtr<TNObject>& element) const {
            if constexpr (requires { keep.add(kept); })
                keep.add(kept);
            else if (kept)
                keep(element);
        }
        void expect(size_t count) const { total = count; }
        // Whether the consumer of a streaming Keep (below) has had all it wants.
        bool stopped() const {
            if constexpr (requires { keep.stopped(); })
                return keep.stopped();
            else
                return false;
        }
        // A Keep that can hand each element on as soon as it is kept (stream()) is told so at
        // the first element, when no element can raise: all the objects of one class, each
        // decided from its own slot, of a kind whose every value compares (no enumeration,
        // whose index may lie outside its type). Only then may the walk stop where the consumer
        // stops, the rest of the evaluations, which have no effect, being left out; the variable
        // is bound to the collection's last element, as evaluating them would leave it.
        void offerStream(const TNObject& model) const {
            if constexpr (requires { keep.stream(); }) {
                if (streamChecked)
                    return;
                streamChecked = true;
                if (total == unknownTotal || total == 0 ||
                    !tn_detail::isExactly<TNAllInstancesExpr>(collection) ||
                    !test->decidesEveryObjectOf(model) ||
                    tn_detail::overwrittenOriginals.load(std::memory_order_relaxed) != 0 ||
                    !keep.mayStream())
                    return;
                test->variable()->object(model.getClass()->instances()[total - 1]);
                streaming = true;
                keep.stream();
            }
        }
        // Out of line, so that a walk under a single test stays small.
        [[gnu::noinline]] int decideCombined(const TNObject* element) const {
            return compound ? compound->decide(element) : -1;
        }
        [[gnu::always_inline]] void one(const SgxSimplePtr<TNObject>& element) const {
            int answer = test ? test->decide(element.get()) : decideCombined(element.get());
            if (answer >= 0) {
                if (!streaming)
                    (test ? test->variable() : compound->variable())->object(element);
            } else {
                answer = tnOperand(filter, predicate).test(element) ? 1 : 0;
                if (test) {
                    test->prepare(element.get());
                    filter.attributeTest().slotDistance = test->slotDistance();
                } else if (compound) {
                    compound->prepare(element.get());
                }
            }
            if (answer != 0)
                keep(element);
        }
        bool operator()(const SgxSimplePtr<TNObject>& element) const {
            plan();
            one(element);
            return !stopped();
        }
        // A whole array: when its objects are all made by one class (tn_detail::linkUniformTag),
        // the slot (or the link) lies at the same place in each, so after the first the others
        // are decided from it alone, their headers unread.
        bool operator()(const SgxSimplePtr<TNObject>* first, size_t count, bool uniform) const {
            plan();
            size_t i = 0;
            if (test && uniform && count > 1 &&
                tn_detail::overwrittenOriginals.load(std::memory_order_relaxed) == 0) {
                one(first[i++]);
                offerStream(*first[0]);
                if (stopped())
                    return false;
                if (test->canDecideLike(*first[0])) {
                    i = test->decideRun(first, i, count, [&](size_t k, int answer) {
                        keepIf(answer != 0, first[k]);
                        return !stopped();
                    });
                    if (stopped())
                        return false;
                    // Bound to the last element decided, as testing each would leave it.
                    if (!streaming)
                        test->variable()->object(first[i - 1]);
                }
            }
            for (; i < count && !stopped(); ++i)
                one(first[i]);
            return !stopped();
        }
    };
    std::optional<tn_detail::SlotTest> test;
    std::optional<tn_detail::CompoundTest> compound;
    bool planned = false;
    size_t total = unknownTotal;
    bool streamChecked = false, streaming = false;
    collection.forEach(Visit{filter, predicate, collection, keep, test, compound, planned, total,
                             streamChecked, streaming});
}

} // namespace

TNAllInstancesExpr::TNAllInstancesExpr(const SgxString& name, const TNObjectExprPtr& object)
    : m_name(new TNConstantExpr(name)), m_object(object) {}

const TNClass* TNAllInstancesExpr::namedClass() const {
    const SgxSimplePtr<TNObject> object = tnOperand(*this, m_object)();
    const TNSchema& schema = *object->getClass()->schema();
    // A constant name is read where it lies.
    const TNValueExpr& nameNode = tnOperand(*this, m_name);
    if (typeid(nameNode) == typeid(TNConstantExpr))
        if (const char* text = static_cast<const TNConstantExpr&>(nameNode).constant().text())
            return schema.findClass(text).get();
    return schema.findClass(nameNode().asString()).get();
}

TNObjectSequence TNAllInstancesExpr::operator()() const {
    const TNClass* cls = namedClass();
    return cls != nullptr ? cls->objects() : TNObjectSequence();
}

size_t TNAllInstancesExpr::count() const {
    const TNClass* cls = namedClass();
    return cls != nullptr ? cls->instances().size() : 0;
}

void TNAllInstancesExpr::forEach(const TNObjectVisitor& visit) const {
    const TNClass* cls = namedClass();
    if (cls == nullptr)
        return;
    // The instances as they are now, handed over a few at a time from a copy: a visitor that
    // makes objects of the class (or unpopulates the schema) neither sees the new ones nor reads
    // past the end, and one call takes a whole batch.
    // The first batch is small, for visitors that stop early (extraction).
    const TNObjectSequence& instances = cls->instances();
    const size_t count = instances.size();
    constexpr size_t batchSize = 256;
    SgxSimplePtr<TNObject> batch[batchSize];
    visit.expect(count);
    for (size_t i = 0, want = 8; i < count && i < instances.size(); want = batchSize) {
        const size_t n = std::min({want, count - i, instances.size() - i});
        std::copy_n(instances.begin() + static_cast<ptrdiff_t>(i), n, batch);
        if (!visit.each(batch, n, true)) // objects made by the class: a uniform array
            return;
        i += n;
    }
}

TNObjectSequence TNAssociationExpr::operator()() const {
    const SgxSimplePtr<TNObject> start = tnOperand(*this, m_object)();
    TNObjectSequence result;
    tnOperand(*this, m_association).traverse(result, start);
    return result;
}

void TNAssociationExpr::forEach(const TNObjectVisitor& visit) const {
    const SgxSimplePtr<TNObject> start = tnOperand(*this, m_object)();
    tnOperand(*this, m_association).forEach(start, visit);
}

bool TNAssociationExpr::linksInPlace(SgxSimplePtr<TNObject>& start, SgxSimplePtr<TNObject>& one,
                                     const SgxSimplePtr<TNObject>*& first, size_t& count) const {
    start = tnOperand(*this, m_object)();
    bool uniform = false;
    return tnOperand(*this, m_association).frozenLinks(start, one, first, count, uniform);
}

void TNAssociationExpr::forEachFrom(const SgxSimplePtr<TNObject>& start,
                                    const TNObjectVisitor& visit) const {
    tnOperand(*this, m_association).forEach(start, visit);
}

size_t TNAssociationExpr::count() const {
    const SgxSimplePtr<TNObject> start = tnOperand(*this, m_object)();
    return tnOperand(*this, m_association).count(start);
}

tn_detail::AttributeTestPlan& TNFilterExpr::attributeTest() const {
    return tn_detail::shapeCacheIn<tn_detail::AttributeTestPlan>(m_plan).get(
        [&](tn_detail::AttributeTestPlan& derived) {
            recognizeAttributeTest(m_predicate.get(), derived);
        });
}

ptrdiff_t TNFilterExpr::testedSlotDistance() const noexcept {
    const tn_detail::AttributeTestPlan* plan =
        tn_detail::currentPlanIn<tn_detail::AttributeTestPlan>(m_plan);
    return plan != nullptr ? plan->slotDistance : 0;
}

TNObjectSequence TNFilterExpr::operator()() const {
    TNObjectSequence kept;
    filterInto(*this, tnOperand(*this, m_collection), m_predicate,
               [&](const SgxSimplePtr<TNObject>& element) { kept.push_back(element); });
    return kept;
}

void TNFilterExpr::forEach(const TNObjectVisitor& visit) const {
    // The elements kept are gathered, and visited once every evaluation is done; or, where the
    // walk finds that no evaluation can raise, visited as they are kept (filterInto's stream).
    struct Gather {
        TNObjectSequence* kept;
        const TNObjectVisitor* visit;
        bool* streaming;
        bool* done;
        void operator()(const SgxSimplePtr<TNObject>& element) const {
            if (!*streaming)
                kept->push_back(element);
            else if (!*done)
                *done = !(*visit)(element);
        }
        bool mayStream() const { return visit->visitsWithoutEffect(); }
        void stream() const {
            *streaming = true;
            *done = !visit->each(kept->data(), kept->size());
        }
        bool stopped() const { return *done; }
    };
    m_kept.use([&](TNObjectSequence& kept) {
        bool streaming = false, done = false;
        filterInto(*this, tnOperand(*this, m_collection), m_predicate,
                   Gather{&kept, &visit, &streaming, &done});
        if (!streaming)
            visit.each(kept.data(), kept.size());
    });
}

size_t TNFilterExpr::count() const {
    struct Count {
        size_t* kept;
        void operator()(const SgxSimplePtr<TNObject>&) const { ++*kept; }
        void add(bool one) const { *kept += one ? 1 : 0; }
    };
    size_t kept = 0;
    filterInto(*this, tnOperand(*this, m_collection), m_predicate, Count{&kept});
    return kept;
}

void TNTraverseExpr::appendTo(TNObjectSequence& out) const {
    // path(element), its variable bound and its body visited rather than gathered: each part's
    // evaluations are done before its elements are appended, which has no effect.
    const TNObjectCollectionAbsExpr& path = tnOperand(*this, m_path);
    tnOperand(*this, m_collection).forEach([&](const SgxSimplePtr<TNObject>& element) {
        tnVariable(path, path.contextObject()).object(element);
        gather(tnOperand(path, path.expr()), out);
        return true;
    });
}

TNObjectSequence TNTraverseExpr::operator()() const {
    TNObjectSequence result;
    appendTo(result);
    return result;
}

size_t TNTraverseExpr::count() const {
    const TNObjectCollectionAbsExpr& path = tnOperand(*this, m_path);
    size_t total = 0;
    tnOperand(*this, m_collection).forEach([&](const SgxSimplePtr<TNObject>& element) {
        tnVariable(path, path.contextObject()).object(element);
        total += tnOperand(path, path.expr()).count();
        return true;
    });
    return total;
}

void TNTraverseExpr::forEach(const TNObjectVisitor& visit) const {
    m_kept.use([&](TNObjectSequence& all) {
        appendTo(all);
        visit.each(all.data(), all.size());
    });
}

void TNSortExpr::sortInPlace(TNObjectSequence& elements) const {
    if (elements.size() < 2 || m_keys.empty())
        return;
    // A copy: a key's evaluation may change the graph, which derives the plan anew.
    const uint64_t once = tn_detail::shapeCacheIn<SortOnce>(m_plan)
                              .get([&](SortOnce& derived) { derived.once = onceKeys(m_keys); })
                              .once;
    sortRange(elements, 0, elements.size(), SortPlan{m_keys, once}, 0);
}

TNObjectSequence TNSortExpr::operator()() const {
    TNObjectSequence elements = tnOperand(*this, m_collection)();
    sortInPlace(elements);
    return elements;
}

void TNSortExpr::forEach(const TNObjectVisitor& visit) const {
    m_kept.use([&](TNObjectSequence& elements) {
        gather(tnOperand(*this, m_collection), elements);
        sortInPlace(elements);
        visit.each(elements.data(), elements.size());
    });
}

void TNSortExpr::prepareForDeletion() const {
    for (const SortKey& key : m_keys)
        tnClaimOperands(key.key);
    tnClaimOperands(m_collection);
}

TNObjectSequence TNUniqueExpr::operator()() const {
    TNObjectSequence elements = tnOperand(*this, m_collection)();
    if (m_isStable) {
        std::unordered_set<const TNObject*> seen;
        seen.reserve(elements.size());
        size_t kept = 0;
        for (size_t i = 0; i < elements.size(); ++i)
            if (seen.insert(elements[i].get()).second)
                elements[kept++] = elements[i];
        elements.resize(kept);
    } else {
        std::sort(elements.begin(), elements.end(), std::less<>());
        elements.erase(std::unique(elements.begin(), elements.end()), elements.end());
    }
    return elements;
}

TNObjectSequence TNReverseExpr::operator()() const {
    TNObjectSequence elements = tnOperand(*this, m_collection)();
    std::reverse(elements.begin(), elements.end());
    return elements;
}

void TNReverseExpr::forEach(const TNObjectVisitor& visit) const {
    m_kept.use([&](TNObjectSequence& elements) {
        gather(tnOperand(*this, m_collection), elements);
        std::reverse(elements.begin(), elements.end());
        visit.each(elements.data(), elements.size());
    });
}

namespace {

// Visits what `walk` hands a visitor until `needed` elements are seen: the first into `first`;
// answers how many were seen. Out of line, so that a caller's path without a visit makes none.
template <class Walk>
[[gnu::noinline]] size_t takeFirst(const Walk& walk, size_t needed, SgxSimplePtr<TNObject>& first) {
    struct Take {
        size_t needed;
        SgxSimplePtr<TNObject>& first;
        size_t seen = 0;
        bool operator()(const SgxSimplePtr<TNObject>& element) {
            if (seen++ == 0)
                first = element;
            return seen < needed;
        }
        // Taking an element changes nothing but what was taken.
        bool visitsWithoutEffect() const { return true; }
    } take{needed, first};
    walk(take);
    return take.seen;
}

} // namespace

SgxSimplePtr<TNObject> TNObjectExtractionExpr::operator()() const {
    // Looks at no more elements than the choice needs: one, or two to tell one from many.
    const size_t needed = m_choice == ExactlyOne ? 2 : 1;
    SgxSimplePtr<TNObject> first;
    size_t seen = 0;
    // A navigation of the library's own class hands over its links where they lie, no visitor
    // being made or called for them (an owner, a parent: one link in the word of a frozen slot).
    const TNObjectCollectionExpr& collection = tnOperand(*this, m_collection);
    if (tn_detail::isExactly<TNAssociationExpr>(collection)) {
        const auto& navigation = static_cast<const TNAssociationExpr&>(collection);
        SgxSimplePtr<TNObject> start;
        const SgxSimplePtr<TNObject>* links = nullptr;
        if (size_t count = 0; navigation.linksInPlace(start, first, links, count)) {
            seen = std::min(count, needed);
            // `first` may hold the one link itself, which is what is wanted.
            if (count != 0 && links != &first)
                first = links[0];
        } else {
            seen = takeFirst(
                [&](const TNObjectVisitor& visit) { navigation.forEachFrom(start, visit); }, needed,
                first);
        }
    } else {
        seen = takeFirst([&](const TNObjectVisitor& visit) { collection.forEach(visit); }, needed,
                         first);
    }
    if (m_choice == ExactlyOne) {
        if (seen != 1)
            raiseExtraction("ObjectExtraction: association doesn't have exactly one object.");
    } else if (seen == 0) {
        raiseExtraction("ObjectExtraction: association doesn't have one or more objects.");
    }
    return first;
}

SgxSimplePtr<TNObject> TNModelExpr::operator()() const {
    const SgxSimplePtr<TNObject> object = tnOperand(*this, m_object)();
    return object->getClass()->schema()->rootObject();
}

namespace {

// Fills in `plan` when `function` is x -> count(C), and its step and filter when C counts the
// objects one simple step from x through filters: x -> count(filter(p, [role] of x)).
void recognizeMapFunction(const TNValueAbsExpr* function, tn_detail::MapPlan& plan) {
    TNObjectVarExpr* variable = nullptr;
    const auto* count = plainBody<TNCountExpr>(function, variable);
    if (count == nullptr)
        return;
    const TNObjectCollectionExpr* collection = count->collection().get();
    if (collection == nullptr)
        return;
    plan.variable = variable;
    plan.counted = collection;
    const TNFilterExpr* filter = nullptr;
    while (typeid(*collection) == typeid(TNFilterExpr)) {
        filter = static_cast<const TNFilterExpr*>(collection);
        collection = filter->collection().get();
        if (collection == nullptr)
            return;
    }
    if (typeid(*collection) != typeid(TNAssociationExpr))
        return;
    const auto& links = static_cast<const TNAssociationExpr&>(*collection);
    const TNAssociationTraversal* step = links.association().get();
    if (links.object().get() != variable || step == nullptr || !step->isSingleStep())
        return;
    plan.step = step;
    plan.filter = filter;
}

// The fewest elements for which a map loads ahead. What a function counting links reads of one
// element takes some ten lines of memory, so a few hundred elements' worth stays in a core's
// cache from one evaluation to the next, and loading it ahead would only cost instructions.
constexpr size_t lookAheadFrom = 2048;

// count(filter(test, [role] of x)) for one x after another, `test` an attribute test and the
// step a single one: where x's links are a frozen array of originals of one class, their slots
// are compared here, in one loop, with the comparison prepared once per class for the whole walk
// rather than once per x; anything else is left to the filter. The effects are the filter's:
// its variable is bound to the last element compared, and what it would raise, it raises.
class TestedLinkCount {
public:
    TestedLinkCount(const TNFilterExpr& filter, const TNAssociationTraversal& step,
                    tn_detail::AttributeTestPlan& plan)
        : m_filter(filter), m_step(step), m_test(plan),
          m_graph(tn_detail::graphChanges.load(std::memory_order_relaxed)) {}

    size_t operator()(const SgxSimplePtr<TNObject>& x) {
        if (size_t kept = 0; countHere(x, kept)) [[likely]]
            return kept;
        // The filter prepares comparisons of its own in the same plan.
        m_test.verified = nullptr;
        return m_filter.count();
    }

private:
    // False, leaving nothing that the filter's count would not leave, where it cannot count.
    bool countHere(const SgxSimplePtr<TNObject>& x, size_t& kept) {
        const SgxSimplePtr<TNObject>* first = nullptr;
        size_t count = 0;
        // A graph changed by a host's node evaluated meanwhile may have let the plan go.
        if (x.get() == nullptr ||
            tn_detail::graphChanges.load(std::memory_order_relaxed) != m_graph ||
            !m_step.uniformLinks(*x, first, count))
            return false;
        kept = 0;
        if (count == 0)
            return true;
        if (tn_detail::overwrittenOriginals.load(std::memory_order_relaxed) != 0 ||
            !m_test.prepare(first[0]->getClass().get(), first[0]))
            return false;
        auto keep = [&kept](const SgxSimplePtr<TNObject>&) { ++kept; };
        // Stopped early, at an index outside the type: the filter compares again, and raises.
        return m_test.compareUniform(first, 0, count, keep) == count;
    }

    const TNFilterExpr& m_filter;
    const TNAssociationTraversal& m_step;
    AttributeTest m_test;
    uint64_t m_graph;
};

// Where a map puts the text of each element: a string of its own at the end of a sequence.
struct IntoSequence {
    TNStringSequence& texts;
    SgxString& next() { return texts.emplace_back(); }
    void expect(size_t total) { texts.reserve(texts.size() + total); }
    // Grows once per array handed over (a long result otherwise grows through fresh pages
    // several times).
    void grow(size_t count) {
        if (const size_t needed = texts.size() + count; needed > texts.capacity())
            texts.reserve(std::max(needed, 2 * texts.capacity()));
    }
};

// Or the end of one joined text, after the delimiter (but for the first). When the number of
// texts is known, the joined text is sized once the first is in, as if all were as long as it
// (a guess: a longer result grows by doubling from there).
struct IntoJoined {
    SgxString& joined;
    std::string_view delimiter;
    size_t count = 0;
    size_t expected = 0;
    SgxString& next() {
        if (count++ > 0) {
            if (count == 2 && expected > 1)
                joined.reserve((joined.size() + delimiter.size()) * expected);
            joined.append(delimiter);
        }
        return joined;
    }
    void expect(size_t total) { expected = total; }
    void grow(size_t) {}
};

} // namespace

// The texts of a map, in order, each appended where `sink` wants it (IntoSequence, IntoJoined):
// the same evaluations and failures, whichever the sink.
template <class Sink> void TNMapExpr::textsInto(Sink& sink) const {
    // The elements are taken where the collection has them, an array at a time.
    const TNValueAbsExpr& function = tnOperand(*this, m_function);
    // A copy: the function may evaluate this map again, which may derive the plan anew.
    const tn_detail::MapPlan plan = tn_detail::shapeCacheIn<tn_detail::MapPlan>(m_plan).get(
        [&](tn_detail::MapPlan& derived) { recognizeMapFunction(m_function.get(), derived); });
    // x -> count(filter(test, [role] of x)), the filter's predicate an attribute test.
    std::optional<TestedLinkCount> tested;
    if (plan.step != nullptr && plan.filter != nullptr && plan.counted == plan.filter)
        if (tn_detail::AttributeTestPlan& test = plan.filter->attributeTest(); test.variable)
            tested.emplace(*plan.filter, *plan.step, test);
    struct Append {
        Sink& sink;
        const TNValueAbsExpr& function;
        const tn_detail::MapPlan& plan;
        std::optional<TestedLinkCount>& tested;
        mutable size_t expected = 0;
        bool operator()(const SgxSimplePtr<TNObject>& element) const {
            // The text is written where it stays, not made and then moved there.
            if (plan.counted != nullptr) {
                plan.variable->object(element);
                // count([role] of x) is the step's count from x.
                const size_t count = tested ? (*tested)(element)
                                     : plan.filter == nullptr && plan.step != nullptr
                                         ? plan.step->count(element)
                                         : plan.counted->count();
                TNValue(static_cast<int32_t>(count)).appendTo(sink.next());
            } else {
                // The function's value is read in place (a text attribute, a constant), a text
                // sum appended operand by operand.
                tnVariable(function, function.contextObject()).object(element);
                tn_detail::appendValue(tnOperand(function, function.expr()), sink.next());
            }
            return true;
        }
        void expect(size_t total) const {
            expected = total;
            sink.expect(total);
        }
        bool operator()(const SgxSimplePtr<TNObject>* first, size_t count, bool) const {
            sink.grow(count);
            if (plan.step == nullptr || std::max(expected, count) < lookAheadFrom) {
                // A function reading an attribute of its variable: the text it reads lies apart
                // from the object, so it is loaded too, once the object's slot has arrived.
                const TNValueExpr* body = function.expr().get();
                const auto* attr = plan.counted == nullptr && body != nullptr &&
                                           tn_detail::isExactly<TNAttrExpr>(*body) &&
                                           static_cast<const TNAttrExpr*>(body)->object().get() ==
                                               function.contextObject().get()
                                       ? static_cast<const TNAttrExpr*>(body)
                                       : nullptr;
                for (size_t i = 0; i < count; ++i) {
                    if (plan.counted == nullptr && i + elementsAhead < count)
                        loadObject(first[i + elementsAhead].get());
                    if (attr != nullptr && i + elementsAhead / 2 < count)
                        if (const TNAttribute* slot =
                                attr->cachedSlot(*first[i + elementsAhead / 2]))
                            if (const char* text = slot->textInPlace())
                                __builtin_prefetch(text);
                    (*this)(first[i]);
                }
                return true;
            }
            // The linked objects are read only by a filter: where its attribute test reads,
            // or else from their first word.
            tn_detail::LinkLookAhead loads(
                *plan.step, first, count,
                plan.filter != nullptr ? plan.filter->testedSlotDistance() : -1);
            for (size_t i = 0; i < count; ++i) {
                loads.before(i);
                (*this)(first[i]);
            }
            return true;
        }
    };
    tnOperand(*this, m_collection).forEach(Append{sink, function, plan, tested});
}

TNStringSequence TNMapExpr::operator()() const {
    TNStringSequence texts;
    IntoSequence sink{texts};
    textsInto(sink);
    return texts;
}

void TNMapExpr::appendJoined(std::string_view delimiter, SgxString& joined) const {
    IntoJoined sink{joined, delimiter};
    textsInto(sink);
}

// Out of line: a caller that knows a node's exact type may call these directly, which an
// inline definition, hidden inside the library, would not allow.
void TNAllInstancesExpr::prepareForDeletion() const { tnClaimOperands(m_name, m_object); }
void TNAssociationExpr::prepareForDeletion() const { tnClaimOperands(m_association, m_object); }
void TNFilterExpr::prepareForDeletion() const { tnClaimOperands(m_predicate, m_collection); }
void TNTraverseExpr::prepareForDeletion() const { tnClaimOperands(m_path, m_collection); }
void TNUniqueExpr::prepareForDeletion() const { tnClaimOperands(m_collection); }
void TNReverseExpr::prepareForDeletion() const { tnClaimOperands(m_collection); }
void TNObjectExtractionExpr::prepareForDeletion() const { tnClaimOperands(m_collection); }
void TNModelExpr::prepareForDeletion() const { tnClaimOperands(m_object); }
void TNMapExpr::prepareForDeletion() const { tnClaimOperands(m_function, m_collection); }
