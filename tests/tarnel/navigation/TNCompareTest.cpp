#include "tarnel/navigation/TNCompare.h"

#include "rw/RWCollectableString.h"
#include "rw/RWFile.h"
#include "rw/RWOrdered.h"
#include "rw/RWbstream.h"
#include "sgx/general/SgxException.h"
#include "sgx/persistence/StartPersistence.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

// Key and flags of each element, "key:flags" with flags as three digits.
std::vector<std::string> summary(const TNCompare& spec) {
    std::vector<std::string> out;
    for (const TNCompareElement& e : spec.elements())
        out.push_back(e.key() + ":" + std::to_string(e.option1()) + std::to_string(e.option2()) +
                      std::to_string(e.option3()));
    return out;
}

std::string storeToStream(const RWCollectable& object) {
    std::ostringstream bytes;
    StartPersistence guard;
    RWbostream out(bytes);
    object.recursiveSaveOn(out);
    return bytes.str();
}

// Restores `data` into `into`; the error text, or "" on success.
std::string restoreFromStream(const std::string& data, RWCollectable& into) {
    StartPersistence guard;
    RWbistream in(data.data(), data.size());
    try {
        into.recursiveRestoreFrom(in);
    } catch (const SgxException& e) {
        return e.reasonText();
    }
    return in.bytesLeft() == 0 ? "" : "bytes left over";
}

} // namespace

TEST(TNCompare, KeepsElementsInAppendOrderAndCopiesDeeply) {
    TNCompare spec("name", true, false, true);
    spec.append("size", false, true, false);
    spec.append("name", false, false, false); // equal keys are not merged
    EXPECT_EQ(summary(spec), (std::vector<std::string>{"name:101", "size:010", "name:000"}));

    TNCompare copy(spec);
    copy.append("extra", true, true, true);
    TNCompare assigned;
    assigned = copy;
    const TNCompare& itself = assigned;
    assigned = itself;
    EXPECT_EQ(summary(spec).size(), 3u);
    EXPECT_EQ(summary(assigned), summary(copy));
}

// Both classes compare by identity only; the element's isEqual is deliberately inverted.
TEST(TNCompare, ComparesByIdentityOnly) {
    TNCompare a("k", true, true, true), b("k", true, true, true);
    RWOrdered other;
    EXPECT_TRUE(a.isEqual(&a));
    EXPECT_FALSE(a.isEqual(&b));
    EXPECT_FALSE(a.isEqual(&other));
    EXPECT_FALSE(a.isEqual(nullptr));
    EXPECT_EQ(a.compareTo(&a), 0);
    EXPECT_EQ(a.compareTo(&other), -1);
    EXPECT_EQ(a.compareTo(nullptr), -1);
    EXPECT_NE(a.compareTo(&b), 0);
    EXPECT_EQ(a.compareTo(&b), -b.compareTo(&a));
    EXPECT_EQ(a.hash(), 1u);

    const TNCompareElement e("k", true, true, true), twin(e);
    EXPECT_FALSE(e.isEqual(&e));
    EXPECT_TRUE(e.isEqual(&twin));
    EXPECT_TRUE(e.isEqual(&other));
    EXPECT_EQ(e.compareTo(&e), 0);
    EXPECT_EQ(e.compareTo(&twin), 1);
    EXPECT_EQ(e.hash(), 1u);
    EXPECT_EQ(e.binaryStoreSize(), 0u); // key and flags are not counted
}

TEST(TNCompare, FileAndStreamHoldTheSameBytesAndRestoreAppends) {
    TNCompare spec("name", true, false, true);
    spec.append("", false, true, false);
    spec.append("size", false, false, false);
    const std::string streamed = storeToStream(spec);
    EXPECT_EQ(streamed.size(), 1 + 4 + std::string("TNCompare").size() + spec.binaryStoreSize());

    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("tncompare-" + std::to_string(getpid()) + ".bin");
    {
        StartPersistence guard;
        RWFile file(path.string(), "wb");
        ASSERT_TRUE(file.isValid());
        spec.recursiveSaveOn(file);
    }
    std::ifstream in(path, std::ios::binary);
    const std::string filed((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(filed, streamed);

    TNCompare fromFile("first", false, false, false);
    {
        StartPersistence guard;
        RWFile file(path.string(), "rb");
        ASSERT_TRUE(file.isValid());
        fromFile.recursiveRestoreFrom(file);
    }
    std::filesystem::remove(path);
    EXPECT_EQ(summary(fromFile),
              (std::vector<std::string>{"first:000", "name:101", ":010", "size:000"}));

    TNCompare fromStream;
    EXPECT_EQ(restoreFromStream(streamed, fromStream), "");
    EXPECT_EQ(summary(fromStream), summary(spec));

    // Any non-zero flag byte reads as true.
    std::string patched = streamed;
    patched[patched.find("size") + 4] = 7;
    TNCompare fromPatched;
    EXPECT_EQ(restoreFromStream(patched, fromPatched), "");
    EXPECT_EQ(summary(fromPatched).back(), "size:100");
}

// Restoring reads untrusted bytes: every bad record raises, leaves the elements as they were and
// (under the sanitizer build) leaks nothing.
TEST(TNCompare, BadRecordsAreRefusedAndChangeNothing) {
    // A record by hand: the base part, then `list` in place of the element collection.
    auto record = [](const RWCollectable* list) {
        std::ostringstream bytes;
        RWbostream out(bytes);
        out << uint8_t{2} << SgxString("TNCompare") << SgxCollectable::recordRevision << list;
        return bytes.str();
    };
    TNCompareElement element("ok", true, true, true);
    RWCollectableString text("no");
    RWOrdered withText, withNil;
    withText.insert(&element);
    withText.insert(&text);
    withNil.insert(nullptr);
    // The list is a back-reference to the sort order itself.
    std::string selfReference = record(nullptr);
    selfReference.back() = 1;
    selfReference += std::string(4, '\0');

    const std::string good = storeToStream(TNCompare("a", true, false, false));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {record(&text), "Invalid sort order: expected RWOrdered; got RWCollectableString"},
        {record(nullptr), "Invalid sort order: expected RWOrdered; got nil"},
        {record(&withText),
         "Invalid sort order: expected TNCompareElement; got RWCollectableString"},
        {record(&withNil), "Invalid sort order: expected TNCompareElement; got nil"},
        {selfReference, "Invalid sort order: expected RWOrdered; got TNCompare"},
    };
    TNCompare spec("kept", false, false, false);
    for (const auto& [data, error] : cases)
        EXPECT_EQ(restoreFromStream(data, spec), error);
    for (size_t size = 0; size < good.size(); ++size)
        EXPECT_NE(restoreFromStream(good.substr(0, size), spec), "") << "cut at " << size;
    EXPECT_EQ(summary(spec), (std::vector<std::string>{"kept:000"}));
}
