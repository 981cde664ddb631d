#pragma once

#include "utl_System.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

/// What is to go wrong. Numbers of calls count from 1 while the plan stands; 0 is never.
struct utl_Faults
{
    int failWrite = 0;
    int failRead = 0;
    int failExtend = 0;       // a change of size, up or down
    int error = EIO;          // the errno of a failed call
    bool tornAtHalf = false;  // the failing write, or growth, does the first half of its work
    bool staysBroken = false; // every later call of that kind fails too, until Repair()
    int killAtChange = 0;     // SIGKILL in place of this write or change of size, for a forked child
    std::int64_t room =
        -1;            // no file gets longer than this: ENOSPC, after a short write where some still fits
    int mostBytes = 0; // a read or write moves at most this much at a time
    int interruptEvery = 0;     // every n-th call is interrupted before it does anything
    bool noReservation = false; // a file system that can't reserve blocks
};

/// Puts faults between utl_File and the system, and notes what passes, from its making to its end.
///
///     utl_FaultPlan plan({.failWrite = 3, .tornAtHalf = true});
///     ... EXPECT_EQ(reported, plan.Fired());
///
/// One plan at a time in a process; it passes on to forked children.
class utl_FaultPlan
{
public:
    struct Transfer
    {
        std::int64_t offset;
        std::int64_t bytes;
        bool operator==(const Transfer&) const = default;
    };

    explicit utl_FaultPlan(const utl_Faults& faults = {}) : m_Faults(faults), m_System(utl_System())
    {
        if (s_Plan != nullptr)
        {
            std::fputs("utl_FaultPlan: there is one already\n", stderr);
            std::abort();
        }
        s_Plan = this;
        utl_System() = {OnRead, OnWrite, OnAllocate, OnTruncate};
    }
    utl_FaultPlan(const utl_FaultPlan&) = delete;
    utl_FaultPlan& operator=(const utl_FaultPlan&) = delete;
    ~utl_FaultPlan()
    {
        utl_System() = m_System;
        s_Plan = nullptr;
    }

    /// Whether a call has failed: by its number, or for want of room.
    bool Fired() const { return m_Fired; }
    /// From now on everything works; the counts go on.
    void Repair()
    {
        m_Faults = {};
        m_Broken = {};
    }
    /// Runs `action` in front of this read: what another process does meanwhile.
    void AtRead(int number, std::function<void()> action)
    {
        m_ActionRead = number;
        m_Action = std::move(action);
    }
    /// Calls so far, the failed and the interrupted ones included.
    int Reads() const { return m_Reads; }
    int Writes() const { return m_Writes; }
    int Extends() const { return m_Extends; }
    /// What was moved, in order; a failed call is not in it, but for the half of a torn one.
    const std::vector<Transfer>& ReadLog() const { return m_ReadLog; }
    const std::vector<Transfer>& WriteLog() const { return m_WriteLog; }
    /// The sizes that were asked for, in order.
    const std::vector<std::int64_t>& ExtendLog() const { return m_ExtendLog; }

private:
    struct Broken
    {
        bool reads = false;
        bool writes = false;
        bool extends = false;
    };

    bool Fails(int number, int failing, bool& broken)
    {
        if (number != failing && !broken) return false;
        broken = m_Faults.staysBroken;
        m_Fired = true;
        errno = m_Faults.error;
        return true;
    }
    void NoRoom()
    {
        m_Fired = true;
        errno = ENOSPC;
    }
    bool Interrupted()
    {
        ++m_Calls;
        if (m_Faults.interruptEvery == 0 || m_Calls % m_Faults.interruptEvery != 0) return false;
        errno = EINTR;
        return true;
    }
    void CountChange()
    {
        if (++m_Changes == m_Faults.killAtChange) std::raise(SIGKILL);
    }
    std::size_t Clipped(std::size_t bytes) const
    {
        return m_Faults.mostBytes > 0 ? std::min(bytes, static_cast<std::size_t>(m_Faults.mostBytes)) : bytes;
    }

    ssize_t Read(int descriptor, char* buffer, std::size_t bytes, off_t offset)
    {
        if (++m_Reads == m_ActionRead) m_Action();
        if (Interrupted() || Fails(m_Reads, m_Faults.failRead, m_Broken.reads)) return -1;
        const ssize_t moved = m_System.read(descriptor, buffer, Clipped(bytes), offset);
        if (moved >= 0) m_ReadLog.push_back({offset, moved});
        return moved;
    }

    ssize_t Write(int descriptor, const char* buffer, std::size_t bytes, off_t offset)
    {
        ++m_Writes;
        if (Interrupted()) return -1;
        CountChange();
        if (Fails(m_Writes, m_Faults.failWrite, m_Broken.writes))
        {
            if (m_Faults.tornAtHalf) static_cast<void>(Pass(descriptor, buffer, bytes / 2, offset));
            errno = m_Faults.error;
            return -1;
        }
        bytes = Clipped(bytes);
        if (m_Faults.room >= 0 && static_cast<std::int64_t>(bytes) > m_Faults.room - offset)
        {
            if (offset >= m_Faults.room)
            {
                NoRoom();
                return -1;
            }
            bytes = static_cast<std::size_t>(m_Faults.room - offset);
        }
        return Pass(descriptor, buffer, bytes, offset);
    }

    ssize_t Pass(int descriptor, const char* buffer, std::size_t bytes, off_t offset)
    {
        const ssize_t moved = m_System.write(descriptor, buffer, bytes, offset);
        if (moved >= 0) m_WriteLog.push_back({offset, moved});
        return moved;
    }

    // True when the change of size may go on.
    bool Extend(std::int64_t size)
    {
        ++m_Extends;
        if (Interrupted()) return false;
        CountChange();
        if (Fails(m_Extends, m_Faults.failExtend, m_Broken.extends)) return false;
        if (m_Faults.room >= 0 && size > m_Faults.room)
        {
            NoRoom();
            return false;
        }
        m_ExtendLog.push_back(size);
        return true;
    }

    int Allocate(int descriptor, off_t offset, off_t bytes)
    {
        if (m_Faults.noReservation)
        {
            errno = EOPNOTSUPP;
            return -1;
        }
        if (Extend(offset + bytes)) return m_System.allocate(descriptor, offset, bytes);
        const int error = errno;
        if (m_Faults.tornAtHalf && error != EINTR)
            static_cast<void>(m_System.allocate(descriptor, offset, bytes / 2));
        errno = error;
        return -1;
    }
    int Truncate(int descriptor, off_t size)
    {
        return Extend(size) ? m_System.truncate(descriptor, size) : -1;
    }

    static ssize_t OnRead(int descriptor, char* buffer, std::size_t bytes, off_t offset)
    {
        return s_Plan->Read(descriptor, buffer, bytes, offset);
    }
    static ssize_t OnWrite(int descriptor, const char* buffer, std::size_t bytes, off_t offset)
    {
        return s_Plan->Write(descriptor, buffer, bytes, offset);
    }
    static int OnAllocate(int descriptor, off_t offset, off_t bytes)
    {
        return s_Plan->Allocate(descriptor, offset, bytes);
    }
    static int OnTruncate(int descriptor, off_t size) { return s_Plan->Truncate(descriptor, size); }

    inline static utl_FaultPlan* s_Plan = nullptr;
    utl_Faults m_Faults;
    utl_SystemCalls m_System;
    Broken m_Broken;
    int m_ActionRead = 0;
    std::function<void()> m_Action;
    bool m_Fired = false;
    int m_Calls = 0;
    int m_Reads = 0;
    int m_Writes = 0;
    int m_Extends = 0;
    int m_Changes = 0;
    std::vector<Transfer> m_ReadLog;
    std::vector<Transfer> m_WriteLog;
    std::vector<std::int64_t> m_ExtendLog;
};
