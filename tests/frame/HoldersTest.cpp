#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

namespace {

/// Counts the calls on it.
struct Counted : public virtual ZBase::ReferenceCounted {
    void AddRef() override { ++references; }
    void Release() override {
        --references;
        if (holder != nullptr) nullAtRelease = holder->IsNull();
    }
    int references = 0;
    ZBase::SmartPtrI<Counted>* holder = nullptr;
    bool nullAtRelease = false;
};

struct Deleted {
    explicit Deleted(int* counter) : count(counter) {}
    virtual ~Deleted() { ++*count; }
    int* count;
};

using Owner = ZBase::ReturnPtr<Deleted, ZBase::DeleteC<Deleted>>;

TEST(Holders, AreOnePointerEach) {
    EXPECT_EQ(sizeof(Owner), sizeof(void*));
    EXPECT_EQ(sizeof(ZBase::ReturnPtrI<Counted>), sizeof(void*));
    EXPECT_EQ(sizeof(ZBase::SmartPtrI<Counted>), sizeof(void*));
}

TEST(HoldersReturnPtr, DeletesWhenItEnds) {
    int deleted = 0;
    { const Owner owner(new Deleted(&deleted)); }
    EXPECT_EQ(deleted, 1);
}

TEST(HoldersReturnPtr, CopyTransfers) {
    int deleted = 0;
    {
        const Owner first(new Deleted(&deleted));
        const Owner second(first);
        EXPECT_TRUE(first.IsNull());
        EXPECT_FALSE(second.IsNull());
    }
    EXPECT_EQ(deleted, 1);
}

TEST(HoldersReturnPtr, LeavesAloneWhatWasTakenOver) {
    int deleted = 0;
    Deleted* object = nullptr;
    {
        Owner owner(new Deleted(&deleted));
        object = owner.Detach();
    }
    EXPECT_EQ(deleted, 0);
    delete object;
}

TEST(HoldersReturnPtr, SwapExchanges) {
    int deleted = 0;
    Owner owner(new Deleted(&deleted));
    Deleted* taken = nullptr;
    owner.Swap(taken);
    EXPECT_TRUE(owner.IsNull());
    ZBase::DeleteC<Deleted>()(taken);
    EXPECT_EQ(deleted, 1);
}

TEST(HoldersDeleteC, LeavesNullAlone) {
    ZBase::DeleteC<Deleted>()(nullptr);
}

TEST(HoldersReturnPtrI, ReleasesTheOneReferenceItWasGiven) {
    Counted object;
    object.AddRef();
    {
        const ZBase::ReturnPtrI<Counted> first(&object);
        const ZBase::ReturnPtrI<Counted> second(first);
        EXPECT_TRUE(first.IsNull());
        EXPECT_EQ(object.references, 1);
    }
    EXPECT_EQ(object.references, 0);
}

TEST(HoldersReturnPtrI, DetachHandsTheReferenceOut) {
    Counted object;
    object.AddRef();
    {
        ZBase::ReturnPtrI<Counted> holder(&object);
        EXPECT_EQ(holder.Detach(), &object);
    }
    EXPECT_EQ(object.references, 1);
}

TEST(HoldersSmartPtrI, HoldsOneReferenceForEachHolder) {
    Counted object;
    {
        ZBase::SmartPtrI<Counted> first(&object);
        EXPECT_EQ(object.references, 1);
        ZBase::SmartPtrI<Counted> second(first);
        EXPECT_EQ(object.references, 2);
        ZBase::SmartPtrI<Counted> third(std::move(second));
        EXPECT_EQ(object.references, 2);
        first.Reset();
        EXPECT_EQ(object.references, 1);
        first = third;
        EXPECT_EQ(object.references, 2);
        first = static_cast<Counted*>(nullptr);
        EXPECT_EQ(object.references, 1);
    }
    EXPECT_EQ(object.references, 0);
}

TEST(HoldersSmartPtrI, KeepsItsObjectWhenAssignedToItself) {
    Counted object;
    ZBase::SmartPtrI<Counted> holder(&object);
    const ZBase::SmartPtrI<Counted>& same = holder;
    holder = same;
    EXPECT_EQ(object.references, 1);
    EXPECT_EQ(holder.Get(), &object);
}

TEST(HoldersSmartPtrI, IsNullAlreadyWhenItsObjectIsReleased) {
    Counted object;
    ZBase::SmartPtrI<Counted> holder(&object);
    object.holder = &holder;
    holder.Reset();
    EXPECT_TRUE(object.nullAtRelease);
}

/// Logs its final release and its destruction.
class Shared : public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    explicit Shared(std::string* log) : mpLog(log) {}
    ~Shared() override { *mpLog += "destroyed"; }
    void OnFinalRelease() override { *mpLog += "final "; }

private:
    std::string* mpLog;  // held, not owned
};

TEST(HoldersReferenceCountedImpl, LastReleaseTellsTheObjectAndDestroysIt) {
    std::string log;
    Shared* object = new Shared(&log);
    object->AddRef();
    object->AddRef();
    object->Release();
    EXPECT_EQ(log, "");
    object->Release();
    EXPECT_EQ(log, "final destroyed");
}

class Fixed : private ZBase::NoCopy {};

TEST(HoldersNoCopy, CanNotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Fixed>);
    EXPECT_FALSE(std::is_copy_assignable_v<Fixed>);
    EXPECT_TRUE(std::is_default_constructible_v<Fixed>);
    EXPECT_FALSE(std::is_default_constructible_v<ZBase::NoCopy>);
}

}  // namespace
