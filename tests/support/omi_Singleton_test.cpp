#include "omi_Singleton.h"

#include <gtest/gtest.h>

namespace
{
struct Plain
{
    int value = 1;
};

class Ended : public omi_SingletonBase<Ended>
{
public:
    Ended() { ++s_Alive; }
    ~Ended() { --s_Alive; }
    int value = 1;
    static inline int s_Alive = 0;
};
} // namespace

TEST(omi_Singleton, AllUsersSeeTheOneInstance)
{
    omi_Singleton<Plain>::Instance().value = 7;
    EXPECT_EQ(omi_Singleton<Plain>::Instance().value, 7);
}

TEST(omi_SingletonBase, TheInstanceIsMadeAtFirstUseAndThePointerIsNullAfterItsEnd)
{
    EXPECT_EQ(Ended::InstancePointer(), nullptr);
    Ended& instance = omi_Singleton<Ended>::Instance();
    EXPECT_EQ(Ended::InstancePointer(), &instance);
    EXPECT_EQ(&omi_Singleton<Ended>::Instance(), &instance);
    EXPECT_EQ(Ended::s_Alive, 1);
    instance.value = 7;

    Ended::DeleteInstance();
    EXPECT_EQ(Ended::s_Alive, 0);
    EXPECT_EQ(Ended::InstancePointer(), nullptr);
    Ended::DeleteInstance();
    EXPECT_EQ(omi_Singleton<Ended>::Instance().value, 1) << "a fresh one";
    Ended::DeleteInstance();
}
