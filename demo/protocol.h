#ifndef LINXIPC_DEMO_PROTOCOL_H
#define LINXIPC_DEMO_PROTOCOL_H

#include <cstdint>

#include "ipc/ReservedSignal.h"

/// What the servers say to each other. All fields have fixed widths and stand in native byte order.
namespace demo {

enum Message : std::uint32_t {
    // Fixed throughout the system.
    m_Shutdown = e_ShutdownSignal,
    m_ProcessDied = e_ProcessDiedSignal,

    // Coming up, dying, coming back: everybody and WatchdogMgr.
    m_Hello = 0x2000,      // Hello, to WatchdogMgr: I am here
    m_Start = 0x2001,      // empty, from WatchdogMgr: everybody whom you may need is here
    m_Ready = 0x2002,      // empty, to WatchdogMgr: I have done what Start asked for
    m_AllReady = 0x2003,   // empty, WatchdogMgr to the launcher
    m_Restart = 0x2004,    // Died, WatchdogMgr to the launcher: start this server again
    m_PeerBack = 0x2005,   // PeerBack, from WatchdogMgr to everybody
    m_PeerEnded = 0x2006,  // empty, the notice that a supervisor asked for; its sender is who ended

    // ConfigMgr.
    m_ConfigRequest = 0x2100,  // empty
    m_ConfigReply = 0x2101,    // Config

    // The stream: UiMgr, ConnectionMgr, StreamMgr, PlaybackMgr.
    m_Connect = 0x2200,       // Connect, UiMgr to ConnectionMgr
    m_Connected = 0x2201,     // Connected, the answer, some ticks later
    m_StreamChunk = 0x2202,   // StreamChunk and its bytes, ConnectionMgr by way of StreamMgr to PlaybackMgr
    m_StreamPlayed = 0x2203,  // StreamPlayed, PlaybackMgr to ConnectionMgr

    // SysTickHal.
    m_TickDue = 0x2300,  // empty, the time-out
    m_Tick = 0x2301,     // Tick, to UiMgr and ConnectionMgr

    // GpsHal.
    m_Locate = 0x2400,           // empty, UiMgr to StateMgr
    m_PositionRequest = 0x2401,  // empty: where were we last?
    m_PositionReply = 0x2402,    // Position
    m_FixRequest = 0x2403,       // empty: look for satellites, which takes its time
    m_FixReply = 0x2404,         // Position

    // The encoders of other nodes, and Offloader.
    m_Encode = 0x2500,     // empty, Offloader to EncodeCtrl
    m_Encoded = 0x2501,    // Encoded, the answer
    m_LinkEnded = 0x2502,  // empty, the notice that Offloader asked for of a session
};

struct Hello {
    std::int32_t pid;
};

struct Died {
    std::int32_t process;  // e_Process; the payload of m_ProcessDied, too
};

struct PeerBack {
    std::int32_t process;  // e_Process
    std::int32_t pid;
};

struct Config {
    std::uint64_t seed;
    std::uint32_t payload;          // bytes of one stream
    std::uint32_t tickPeriod;       // milliseconds
    std::uint32_t fixTime;          // milliseconds
    std::uint32_t answerTime;       // milliseconds: how long to wait for an answer
    std::uint32_t ticksPerConnect;  // ticks that ConnectionMgr takes to connect
    std::uint32_t reserved;
};

struct Connect {
    std::uint32_t round;
};

struct Connected {
    std::uint32_t round;
    std::uint32_t bytes;
};

struct StreamChunk {
    std::uint32_t round;
    std::uint32_t sequence;  // from 0
    std::uint32_t count;     // chunks of this stream
    std::uint32_t bytes;     // that follow
    std::int32_t relayedBy;  // e_Process, written in place by the relay
    std::uint32_t reserved;
    std::uint64_t checksum;  // of the whole stream
};

struct StreamPlayed {
    std::uint32_t round;
    std::uint32_t bytes;
    std::uint64_t checksum;
};

struct Tick {
    std::uint32_t number;  // from 1
};

struct Position {
    std::int32_t pid;        // of the incarnation that answers
    std::int32_t latitude;   // millionths of a degree
    std::int32_t longitude;  // millionths of a degree
};

struct Encoded {
    std::int32_t pid;
};

/// What the launcher writes to the front panel, one byte a press.
enum Button : char { b_Play = 'P', b_Locate = 'L' };

}  // namespace demo

#endif
