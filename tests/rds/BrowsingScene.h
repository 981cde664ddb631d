#pragma once

// A browser whose service is a script: its replies are written down before, and what it is asked is kept.

#include "Descriptors.h"
#include "EnvironmentVariable.h"
#include "FromHex.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rds.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using EntityList = cow_List<rds_DirectoryEntity>;

inline constexpr const char* kLostConnection = "*** Error: Lost connection to remote server";

// Ends a client as its owner has to.
inline void EndClient(rds_Client* client)
{
    client->Reap(0);
    const std::unique_ptr<utl_TempFile> errors(client->StdErrFile());
    delete client;
}

inline std::string NamesOf(const EntityList& list)
{
    std::string names;
    for (const rds_DirectoryEntity& entity : list) names += std::string(entity.m_Name.View()) + " ";
    return names;
}

class BrowsingScene : public ::testing::Test
{
protected:
    BrowsingScene() { std::filesystem::create_directory(Path("temp")); }
    // Whatever a test does: no child, no zombie, no temporary file, no descriptor stays.
    ~BrowsingScene() override
    {
        EXPECT_TRUE(HasNoChildren());
        EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
        EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore);
    }

    std::string Path(const std::string& name) const { return m_Folder.Path() + "/" + name; }
    void Put(const std::string& name, std::string_view bytes) const
    {
        PutBytes(cow_String(Path(name)), bytes);
    }
    // What the service was asked; whole once the browser has gone.
    std::string Requests() const { return BytesOf(cow_String(Path("requests"))); }

    // A client of the shell's, in the folder of the test.
    rds_Client* Client(const std::string& script) const
    {
        auto errorFile = std::make_unique<utl_TempFile>("");
        uti_Redirection redirection("2>", errorFile->Name());
        cow_1DArrayList<cow_String> words;
        words.Append("-c");
        words.Append(cow_String("cd '" + m_Folder.Path() + "' && " + script));
        auto client = std::make_unique<rds_Client>("/bin/sh", words, errorFile.get(), redirection);
        static_cast<void>(errorFile.release());
        return client.release();
    }
    // One that says all its replies, hangs up, and still takes what it is asked.
    rds_Client* Scripted(std::string_view replies) const
    {
        Put("replies", replies);
        return Client("cat replies; exec cat >requests");
    }
    // One that stays on the line behind its replies.
    rds_Client* Patient(std::string_view replies) const
    {
        Put("replies", replies);
        return Client("cat replies; exec 3>&1; exec cat >requests");
    }
    static std::string Handshake() { return FromHex("00000005") + "linux" + FromHex("00000002"); }
    // A browser behind the handshake, whose service then says `replies`.
    std::unique_ptr<rds_CFileBrowsing> Browser(const std::string& replies) const
    {
        return Owning(Scripted(Handshake() + replies));
    }
    // A constructor that fails leaves the client to its caller.
    static std::unique_ptr<rds_CFileBrowsing> Owning(rds_Client* client)
    {
        try
        {
            return std::make_unique<rds_CFileBrowsing>(client);
        }
        catch (const nex_Exception&)
        {
            EndClient(client);
            throw;
        }
    }
    template <class Action> static std::string Failure(Action action)
    {
        return Thrown<nex_TextException>(action);
    }

private:
    int m_DescriptorsBefore = OpenDescriptorCount();
    TestFolder m_Folder;
    EnvironmentVariable m_Temp{"TMPDIR", Path("temp").c_str()};
};
