// TNObject: one instance of a metaclass: a row of attribute slots (TNAttribute), one per attribute
// of its class in the class's index order, and one link slot per association of its class.
//
// Ownership: objects, their slots and their links live in the schema's process-wide memory
// regions and are never freed one by one: TNClass::newObject places each object with its link
// words and slots in one block of the primary region (this class's operator new, for objects a
// host makes, takes the primary region too; operator delete does nothing), and the regions go
// when the schema is unpopulated or destroyed. Handles to objects borrow. Copies are shallow: a
// copy shares the class, slots and links of its original, and is valid as long as it is.
//
// Life cycle: created by TNClass::newObject, filled by the host (operator[] and TNAttribute
// assignment, associate), frozen by donePopulating() when the schema is, then read.
//
// Link representation. Each link slot is one word, in one of four states told apart by its low
// bits (object addresses and region blocks are 8-aligned): empty (0); one link, the object's
// address tagged in bit 0, which is how most slots (an owner) stay for good, with no node and no
// array; a list of nodes in the temporary region, newest first, tagged in bit 1 (prepending is
// one node and no copy); a frozen array in the primary region, oldest first, with the element
// count in the word before the first element. The words sit in the object's block, and freezing
// rewrites lists into arrays in place. Since the
// word tells its own state, an object made or linked after the schema was frozen still reads
// correctly (its new links form a list until the schema is frozen again). Callers see links
// oldest first in every state, and the statistics count the figures of the plain layout (list
// heads, a node per link, an array per frozen slot), whatever this representation saves.
#pragma once

#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "tarnel/instances/TNAttr.h"
#include "tarnel/instances/TNLinkView.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/tarnel_export.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class TNAssociation;

// Process-wide totals since the process started (never reset), as the statistics file reports
// them.
struct TNObjectStatistics {
    uint64_t objects = 0;          // objects constructed from a class
    uint64_t attributes = 0;       // attribute slots made
    uint64_t associations = 0;     // link slots made
    uint64_t links = 0;            // links added
    uint64_t objectBytes = 0;      // never counted: always 0
    uint64_t attributeBytes = 0;   // 16 per attribute slot
    uint64_t associationBytes = 0; // 8 per link slot frozen, 8 n + 8 per frozen slot of n > 0 links
};

namespace tn_detail {
// Link slot words of an object: 0 is an empty slot; a word without these tags is a frozen array
// (see below); linkSingleTag marks a frozen slot holding its one object in the word; linkListTag
// marks the newest node of a list still being populated.
inline constexpr uintptr_t linkSingleTag = 1;
inline constexpr uintptr_t linkListTag = 2;
inline constexpr uintptr_t linkTagMask = linkSingleTag | linkListTag;
// A frozen array's word holds the array's address in its low 48 bits (user space addresses on
// Linux fit) and the link count in its top 16 bits, or linkCountElsewhere when the count does not
// fit: then only the word before the array has it. Counting a slot's links reads the word alone,
// not a line of the array, which lies apart from the objects.
inline constexpr unsigned linkCountShift = 48;
// A frozen array's word may also carry linkUniformTag (bit 2, always clear in the 8-aligned
// address): every element is an object made by its class (not a copy, not null) of the first
// element's class, so that a walk learns the class of all from the first alone.
inline constexpr uintptr_t linkUniformTag = 4;
inline constexpr uintptr_t linkAddressMask =
    ((uintptr_t(1) << linkCountShift) - 1) & ~(linkTagMask | linkUniformTag);
inline constexpr uintptr_t linkCountElsewhere = 0xFFFF;
// The elements and the count of a frozen array's word (0 for the empty word).
inline const SgxSimplePtr<TNObject>* linkArray(uintptr_t word) noexcept {
    return reinterpret_cast<const SgxSimplePtr<TNObject>*>(word & linkAddressMask);
}
inline size_t linkArrayCount(uintptr_t word) noexcept {
    const uintptr_t inWord = word >> linkCountShift;
    return inWord != linkCountElsewhere
               ? inWord
               : reinterpret_cast<const uint64_t*>(word & linkAddressMask)[-1];
}
// Assignments that made an object of the primary region (one made by its class) a copy of
// another, since the region was last freed. A uniform array's promise holds while there are none:
// such an object still sits in the arrays frozen before, but now reads another object's slots.
TARNEL_API extern std::atomic<uint64_t> overwrittenOriginals;
} // namespace tn_detail

class TARNEL_API TNObject {
public:
    // Objects live in the primary memory region; delete gives nothing back (the region does).
    static void* operator new(size_t size);
    static void operator delete(void*) noexcept {}

    // No class and no slots; only a target of assignment.
    TNObject() noexcept = default;
    // Shallow: the copy shares the original's class, slots and links.
    TNObject(const TNObject& other) noexcept : m_word(other.copyWord()) {}
    TNObject& operator=(const TNObject& other) noexcept {
        if (m_word != 0 && (m_word & copyTag) == 0) [[unlikely]]
            tn_detail::overwrittenOriginals.fetch_add(1, std::memory_order_relaxed);
        m_word = other.copyWord();
        return *this;
    }
    // The first destruction of any object in the process writes the statistics file (named by the
    // environment variable TARNEL_OBJECTCOUNT_FILE, else objectcount.txt in the temporary
    // directory): seven labelled lines of the totals of statistics(). A failure to write is
    // ignored; later destructions do nothing.
    ~TNObject();

    // Identity: the same object.
    bool operator==(const TNObject& other) const noexcept { return this == &other; }

    SgxSimplePtr<TNClass> getClass() const noexcept { return cls(); }

    // The slot of attribute `name`. Raises TNException (Access, AttrDescriptor, NameNotFound) with
    // the attribute name and the class name (class 1) when the class has no such attribute,
    // "fullyQualifiedName" included.
    TNAttribute& operator[](std::string_view name) { return slots()[checkedAttrIndex(name)]; }
    const TNAttribute& operator[](std::string_view name) const {
        return slots()[checkedAttrIndex(name)];
    }
    // The slot of the descriptor's attribute: found by identity when the descriptor belongs to
    // this object's class, else by the descriptor's name (raising as above).
    TNAttribute& operator[](const TNAttrDesc& desc) { return slots()[attrIndexOf(desc)]; }
    const TNAttribute& operator[](const TNAttrDesc& desc) const {
        return slots()[attrIndexOf(desc)];
    }
    // How many bytes past an object of `desc`'s class its slot of `desc` lies (for look-ahead
    // loads); 0, the object itself, for a descriptor of no class.
    static ptrdiff_t slotDistance(const TNAttrDesc& desc) noexcept {
        return desc.m_position >= 0
                   ? ptrdiff_t(sizeof(TNObject) + size_t(desc.m_position) * sizeof(TNAttribute))
                   : 0;
    }
    // Handles to every slot, in slot order (borrowed: the slots belong to the object).
    std::vector<SgxSimplePtr<TNAttribute>> attributes() const;

    // Records a link from this object to `other` along `assoc`, and the reverse link on `other`
    // when the association's other class knows the near end's role name. Links are not checked
    // for duplicates. A compound association records nothing. Raises TNException (Access,
    // Association, NameNotFound) with the far role name and the class name when this class has
    // no association reached through `assoc`'s other role name; "Null dereference" when the
    // reverse link is due and `other` is null; (Access, Association, NameNotFound) when `other`'s
    // class lacks the near role name. Nothing is recorded when it raises.
    // A checked build (tnCheckedBuild()) also raises TNException (Create, Association, Invalid)
    // with this class's name, `other`'s class name (class 2) and the far role name when `other`'s
    // class is neither the association's other class nor derived from it; an unchecked build
    // links such an object as described above.
    void associate(SgxSimplePtr<TNObject> other, const TNAssociation& assoc);
    // The same through the association reached by role `name` (raising as above for an unknown
    // name).
    void associate(SgxSimplePtr<TNObject> other, std::string_view name);

    // The objects linked along the association, oldest first (a compound association computes
    // them). Raise (Access, Association, NameNotFound) for an association this class lacks.
    std::vector<SgxSimplePtr<TNObject>> objects(const TNAssociation& assoc) const;
    std::vector<SgxSimplePtr<TNObject>> objects(std::string_view name) const;
    // objects(assoc).size() without building the list; raises what objects(assoc) raises.
    size_t linkCount(const TNAssociation& assoc) const;

    // What objects(assoc) gives, as a range that copies no link when it can (see TNLinkView).
    // Raises what objects(assoc) raises.
    TNLinkView links(const TNAssociation& assoc) const;
    // The single linked object, or null when there is none. Raises TNException (Access,
    // Association, Invalid) with the role name and the class name when there are several, and
    // what objects() raises.
    SgxSimplePtr<TNObject> object(const TNAssociation& assoc) const;
    SgxSimplePtr<TNObject> object(std::string_view name) const;

    // Whether one of the first eight attribute values (fewer when the class has fewer attributes)
    // equals TNValue(text), compared by TNAttribute::operator==.
    bool getObject(const SgxString& text) const;

    // Freezes the object: moves its texts into the string region and turns every link list into
    // its array. Called once per object by TNClass::donePopulating.
    void donePopulating();

    // A snapshot of the process-wide totals.
    static TNObjectStatistics statistics() noexcept;

private:
    friend class TNClass;
    // Navigation resolves an association's link slot once per class and reads it through
    // linkCountAt and linksAt.
    friend class TNAssociationTraversal;

    // A new object of `cls` in the primary region, in its first state: empty slots of its
    // attributes, empty link slots. Raises SgxAssertion (unit "TNObject") should the region
    // return no storage.
    static TNObject* create(TNClass& cls, bool flag);
    explicit TNObject(TNClass& cls) noexcept : m_word(reinterpret_cast<uintptr_t>(&cls)) {}

    // Adds one link to the slot of role `name` (raising for an unknown one).
    void addAssociation(SgxSimplePtr<TNObject> other, const SgxString& name);
    void addLink(int32_t slot, TNObject* other);

    size_t checkedAttrIndex(std::string_view name) const;
    size_t attrIndexOf(const TNAttrDesc& desc) const {
        // A descriptor of this class knows its position; positions never move.
        if (desc.m_class.get() == cls() && desc.m_position >= 0) [[likely]]
            return static_cast<size_t>(desc.m_position);
        return checkedAttrIndex(desc.m_name);
    }
    // The link slot of `assoc` in this object's class.
    int32_t linkSlot(const TNAssociation& assoc) const;
    // linkCount and links of a simple association whose link slot is `slot`. Frozen slots are
    // read without a call; a list still being populated is walked out of line.
    size_t linkCountAt(int32_t slot) const noexcept {
        const uintptr_t word = linkWord(slot);
        if ((word & tn_detail::linkTagMask) == 0)
            return tn_detail::linkArrayCount(word);
        return (word & tn_detail::linkSingleTag) != 0 ? 1 : listLinkCount(word);
    }
    TNLinkView linksAt(int32_t slot) const;
    // The frozen array of links in `slot`, without a call: its first element and count (none
    // for an empty slot), and whether it is uniform (see tn_detail::linkUniformTag). False when
    // the slot holds one link in its word, or a list still being populated: linksAt then.
    bool linkArrayAt(int32_t slot, const SgxSimplePtr<TNObject>*& first, size_t& count,
                     bool& uniform) const noexcept {
        const uintptr_t word = linkWord(slot);
        if ((word & tn_detail::linkTagMask) != 0)
            return false;
        first = tn_detail::linkArray(word);
        count = tn_detail::linkArrayCount(word);
        uniform = (word & tn_detail::linkUniformTag) != 0;
        return true;
    }
    static size_t listLinkCount(uintptr_t word) noexcept;
    // Whether the `count` (at least one) objects are all made by one class (tn_detail::
    // linkUniformTag).
    static bool isUniform(const SgxSimplePtr<TNObject>* elements, size_t count) noexcept;
    // The slot of the reverse link on `other`, or -1 when none is recorded.
    static int32_t reverseSlot(const SgxSimplePtr<TNObject>& other, const TNAssociation& assoc);
    std::vector<SgxSimplePtr<TNObject>> linkedObjects(int32_t slot) const;
    SgxSimplePtr<TNObject> singleLinkedObject(int32_t slot, std::string_view name) const;
    [[noreturn]] void raiseAssociationNotFound(std::string_view name) const;

    // Layout. An object made by its class is one block of the primary region: its link words
    // (slot 0 nearest), the object's one word, its attribute slots. So the object reaches both
    // without a pointer, and the word holds the class. A copy (made by the host, anywhere) holds
    // the address of the object it copies, tagged in bit 0, and reads the original's block; a
    // default-constructed object holds 0 (no class, no slots).
    static constexpr uintptr_t copyTag = 1;
    const TNObject* original() const noexcept {
        return (m_word & copyTag) != 0 ? reinterpret_cast<const TNObject*>(m_word & ~copyTag)
                                       : this;
    }
    uintptr_t copyWord() const noexcept {
        return m_word == 0 ? 0 : reinterpret_cast<uintptr_t>(original()) | copyTag;
    }
    TNClass* cls() const noexcept { return reinterpret_cast<TNClass*>(original()->m_word); }
    TNAttribute* slots() const noexcept {
        return reinterpret_cast<TNAttribute*>(const_cast<TNObject*>(original()) + 1);
    }
    uintptr_t& linkWord(int32_t slot) const noexcept {
        return reinterpret_cast<uintptr_t*>(const_cast<TNObject*>(original()))[-1 - slot];
    }
    // linkWord of an object known to be made by its class (not a copy): its word unread.
    uintptr_t originalLinkWord(int32_t slot) const noexcept {
        return reinterpret_cast<const uintptr_t*>(this)[-1 - slot];
    }

    uintptr_t m_word = 0;
};

namespace tn_detail {
// In a uniform run of links (see linkUniformTag), the slot of `object` that lies where `modelSlot`
// lies in `model`, another object of the run: objects made by one class place a slot at the same
// offset, so the slot is found without reading `object` itself.
inline const TNAttribute& sameSlot(const TNObject& model, const TNAttribute& modelSlot,
                                   const TNObject& object) noexcept {
    const ptrdiff_t offset =
        reinterpret_cast<const char*>(&modelSlot) - reinterpret_cast<const char*>(&model);
    return *reinterpret_cast<const TNAttribute*>(reinterpret_cast<const char*>(&object) + offset);
}
} // namespace tn_detail
