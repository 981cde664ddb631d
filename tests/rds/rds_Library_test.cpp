#include "rds_Library.h"

#include "Thrown.h"
#include "mdl_Library.h"
#include "rds_RemoteConnectionsRep.h"
#include "rds_StoredClasses.h"

#include <gtest/gtest.h>

TEST(rds_Library, TheFirstCallRaisesTheCountAndTheLastLowersIt)
{
    int count = 100;
    rds_initialize(count);
    EXPECT_EQ(count, 101);
    rds_initialize(count);
    EXPECT_EQ(count, 101);
    rds_finalize(count);
    EXPECT_EQ(count, 101);
    EXPECT_NE(rds_RemoteConnectionsRep::InstancePointer(), nullptr);
    rds_finalize(count);
    EXPECT_EQ(count, 100);
}

TEST(rds_Library, TheRegistryLivesFromTheFirstCallToTheLast)
{
    int count = 0;
    for (int round = 0; round < 2; ++round)
    {
        EXPECT_EQ(rds_RemoteConnectionsRep::InstancePointer(), nullptr);
        rds_initialize(count);
        ASSERT_NE(rds_RemoteConnectionsRep::InstancePointer(), nullptr);
        auto& registry = omi_Singleton<rds_RemoteConnectionsRep>::Instance();
        EXPECT_EQ(&registry, rds_RemoteConnectionsRep::InstancePointer());
        EXPECT_EQ(registry.GetRepository().DynTypeId(), 55377922);
        EXPECT_EQ(registry.GetRepository().Size(), 0) << "round " << round;
        remoteConnectionConstructor("box1", "hpc7", "", "", rds_RemoteLoginMechanismEnm::SSH, "", 1, 2, 3,
                                    true);
        rds_finalize(count);
    }
    EXPECT_EQ(rds_RemoteConnectionsRep::InstancePointer(), nullptr);
}

TEST(rds_Library, ARegistryThatNobodyInitialisedHoldsAPlainRepository)
{
    rds_RemoteConnectionsRep registry;
    EXPECT_EQ(registry.GetRepository().DynTypeId(), mdl_Repository::TypeId());
    EXPECT_EQ(registry.GetRepository().Size(), 0);
    try
    {
        registry.Connections();
        FAIL() << "nothing was thrown";
    }
    catch (const nex_AssertException& failure)
    {
        EXPECT_STREQ(failure.what(), "nex_canDynamicCastRef(wantedType, actualType)");
        EXPECT_EQ(failure.SourceName().View(), "rds_RemoteConnectionsRep");
    }
}

TEST(rds_Library, ItsTypesStandInTheirTable)
{
    int count = 0;
    rds_initialize(count);
    const typ_Entry* none = typ_ArchCompTable::FindRow(55377920);
    const typ_Entry* connection = typ_ArchCompTable::FindRow(55377921);
    const typ_Entry* container = typ_ArchCompTable::FindRow(55377922);
    ASSERT_TRUE(none != nullptr && connection != nullptr && container != nullptr);
    EXPECT_EQ(none->kind, 0);
    EXPECT_EQ(none->base, 1);
    EXPECT_EQ(none->name, nullptr);
    EXPECT_EQ(connection->kind, 7);
    EXPECT_EQ(connection->base, 1);
    EXPECT_STREQ(connection->name, "rds_RemoteConnection");
    EXPECT_EQ(container->kind, 7);
    EXPECT_EQ(container->base, 655361);
    EXPECT_STREQ(container->name, "rds_RemoteConnectionsContainer");
    EXPECT_EQ(typ_ArchCompTable::FindRow(55377923), nullptr);
    rds_finalize(count);
}

TEST(rds_Library, ItsClassesAreDescribed)
{
    int count = 0;
    rds_initialize(count);
    const cls_ClassMetadata* connection = cls_ClassRegistrar::FindClassMD(55377921);
    const cls_ClassMetadata* container = cls_ClassRegistrar::FindClassMD(55377922);
    ASSERT_TRUE(connection != nullptr && container != nullptr);
    EXPECT_EQ(connection->Name().View(), "rds_RemoteConnection");
    EXPECT_EQ(connection->VersionNumber(), 800);
    EXPECT_EQ(connection->BaseType(), 1);

    struct Expected
    {
        const char* name;
        int type;
    };
    const Expected expected[] = {
        {"m_ServerPortNumber", 5},
        {"m_ConnectPortNumber", 5},
        {"m_HostName", 11},
        {"m_Directory", 11},
        {"m_Name", 11},
        {"m_RemoteMarlekDriverName", 11},
        {"m_TimeOut", 5},
        {"m_StartRemoteServer", 13},
        {"m_RemoteConnectionStatus", 14},
        {"m_Transient", 13},
        {"m_RemoteLoginMechanism", 14},
        {"m_sshExecPath", 11},
        {"qlnsrvdKey", 11},
    };
    ASSERT_EQ(connection->Attributes().size(), std::size(expected));
    for (std::size_t index = 0; index < std::size(expected); ++index)
    {
        const cls_Attribute& attribute = connection->Attributes()[index];
        EXPECT_EQ(attribute.handle.Index(), static_cast<int>(index));
        EXPECT_STREQ(attribute.handle.Name(), expected[index].name);
        EXPECT_EQ(attribute.type, expected[index].type) << attribute.handle.Name();
        EXPECT_EQ(attribute.number, 1);
        EXPECT_EQ(attribute.collectionType, 0);
    }

    EXPECT_EQ(container->Name().View(), "rds_RemoteConnectionsContainer");
    EXPECT_EQ(container->VersionNumber(), 800);
    EXPECT_EQ(container->BaseType(), 655361);
    ASSERT_EQ(container->Attributes().size(), 1U);
    const cls_Attribute& map = container->Attributes()[0];
    EXPECT_EQ(map.handle.Index(), -1);
    EXPECT_STREQ(map.handle.Name(), "map");
    EXPECT_EQ(map.type, 15);
    EXPECT_EQ(map.number, 2293762);
    EXPECT_EQ(map.collectionType, 2);
    rds_finalize(count);
}
