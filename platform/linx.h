/* SPDX-License-Identifier: MIT */
/*
 * The fifteen LINX operations: endpoints are opened by name, and signals are sent to process identifiers (spids).
 *
 * Threads: a handle belongs to one thread at a time; different threads may use different handles at once. No operation
 * starts a thread. Only the two receives wait for other endpoints. But a process that is stopped while it holds the
 * domain's lock delays linx_open, linx_close, a hunt for an absent name, and an allocation that has to lease memory.
 * No operation may be called, and no process forked, from a handler registered with pthread_atfork: it could wait for
 * itself for ever.
 *
 * Errors: an operation that fails returns -1, a null pointer or a 0 reference, and sets errno. Common to all:
 *   EINVAL  a handle, signal or name that is null, foreign, freed or made up; nothing is touched. Also a handle that
 *           another thread is using at that moment, as far as that is noticed: where it is not, the program may crash
 *   ECHILD  after a fork the endpoint belongs to the other of the two processes; or this is a child that was made while
 *           a thread was inside an operation on it, or without fork handlers (_Fork, clone)
 *   ENOMEM, EMFILE, ENFILE  no memory or no descriptor left for an operation that needs one; allocating from memory
 *           that is leased already, freeing, closing and cancelling a time-out need none. ENFILE also when the user may
 *           watch no more descriptors (fs.epoll.max_user_watches)
 *   EACCES, EPERM, ELOOP, ENOTDIR, EROFS, EIO, ENOLCK  the kernel refuses the domain's files, though it gave them
 *           before: of an open, a hunt, an attach, a first send to an endpoint, and of an allocation. The operation can
 *           be tried again
 *   EPROTO  what lies in the place of an endpoint's file in the domain is something else: of a hunt, an attach and a
 *           first send to the endpoint
 *   ESTALE  the domain's files have been removed, and the operation would have needed them
 *   EACCES  the process has given up the rights with which it joined the domain, and would have to connect to an
 *           endpoint that is new to it; or, being a child forked since then, to take the domain's lock
 *   EBADF  the program has closed descriptors that are the platform's, as one does that closes all that it has. An
 *           endpoint that it opens afterwards works. A receive says ECONNABORTED then
 *   ECONNABORTED  the endpoint counts as ended, because the domain's memory was garbled or its files were removed, or
 *           has lost its descriptors: it can only be closed
 *
 * Signals: a signal is owned by the handle that allocated or received it until that handle sends it, frees it, or hands
 * it over to linx_hunt, linx_attach or linx_request_tmo. Sending and those three take a signal of the handle even when
 * they fail (it is then freed), and set the caller's pointer to null. A pointer that is not such a signal is left
 * alone, and so is what it points to.
 */
#ifndef LINXIPC_PLATFORM_LINX_H
#define LINXIPC_PLATFORM_LINX_H

#include <stdint.h>

#include "platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque handle of one endpoint. */
typedef struct LINX LINX;

/* The head of a signal; its payload bytes follow the number. */
typedef struct LinxSignal {
    uint32_t number; /* the type of the signal */
} LinxSignal;

/* Identifies one incarnation of an endpoint; 0 never names a live one. */
typedef uint32_t LinxSpid;

/* Names an attach or a pending time-out; 0 means refused. */
typedef uint32_t LinxRef;

enum {
    LINX_OS_HUNT_SIG = 251,    /* the default answer to a hunt       */
    LINX_OS_TIMEOUT_SIG = 252, /* the default signal of a time-out   */
    LINX_OS_SOUGHT_SIG = 253   /* tells a link what is hunted for    */
};

enum {
    LINX_OPEN_LINK = 1 /* an option of linx_open */
};

/*
 * Opens an endpoint under `name` (1 to 255 bytes, copied). `argument` is reserved: null. `options` is 0, or
 * LINX_OPEN_LINK: names that begin with `name` and a slash are those of endpoints elsewhere, which this one can make
 * known here. For each hunt for such a name that nobody has, it is sent LINX_OS_SOUGHT_SIG by the hunter, with the rest
 * of the name behind the slash and a NUL; at first for those that are pending already.
 * Returns the handle, to be given back with linx_close, or null:
 * EADDRINUSE a live endpoint has the name; ENAMETOOLONG; EACCES, EPERM this process may not join or make the domain;
 * EPROTO the domain's arena is damaged or of an incompatible version; ENOMEM, also when the process may not make a file
 * as large as the domain's memory (RLIMIT_FSIZE; no SIGXFSZ is delivered) or lock as much (RLIMIT_MEMLOCK); ENOSPC the
 * domain has no room for another endpoint (dead ones are looked for now and then, not each time), or no file can be made
 * where it lies; ENOENT, ENOTDIR, ELOOP, EROFS, EDQUOT, EMLINK the domain's directory, or a file in it, cannot be made
 * where LINX_DOMAIN says; EEXIST something else is there; EINVAL also when LINX_DOMAIN is neither a path nor a word. An
 * endpoint that could not be opened is never visible to others, but for a link without memory for the hunts that it is
 * told of first: it ends at once. The log tells which domain was meant.
 */
LINXIPC_API LINX *linx_open(const char *name, uint32_t options, void *argument);

/*
 * The descriptor to wait on in a poll loop: readable exactly while a receive that selects any signal would not
 * wait. It may be readable once without a signal; a receive with time-out 0 clears that. It is a duplicate that belongs
 * to the caller, who may close it at any time; every call returns the same one. -1 with EMFILE when there is none.
 */
LINXIPC_API int linx_get_descriptor(LINX *linx);

/*
 * Ends the endpoint: its supervisors are told, its signals are freed, and its name may be opened again. 0 or -1. In a
 * child that has inherited the handle and not used it, only the child's copy ends.
 */
LINXIPC_API int linx_close(LINX *linx);

/*
 * Searches for the endpoint `name`. The answer is a signal from the endpoint that was found: `*huntSignal`, taken over,
 * or LINX_OS_HUNT_SIG when `huntSignal` or `*huntSignal` is null. A hunt for an absent name stays pending until an
 * endpoint opens under that name. 0, or -1: ENAMETOOLONG, ENOMEM no memory for the signal, ENOSPC too many pending
 * hunts, of this endpoint (1024) or of the domain (4096; those of dead endpoints are looked for now and then, not each
 * time). Where there is a link for the name, also what sending to it may fail for; the hunt is not pending then.
 */
LINXIPC_API int linx_hunt(LINX *linx, const char *name, LinxSignal **huntSignal);

/*
 * Supervises `spid`: when it ends, `*notice`, taken over, arrives from it, after everything that it had sent; at once
 * if it has ended already. Attaching twice gives two notices. Returns a reference, or 0: ESRCH there never was such a
 * spid.
 */
LINXIPC_API LinxRef linx_attach(LINX *linx, LinxSignal **notice, LinxSpid spid);

/*
 * Allocates a signal of `size` bytes (4, the number word, to 1 MiB) and writes `number` into it; the payload is not
 * cleared and starts 16-byte aligned. Null: EMSGSIZE too large, EINVAL too small, ENOMEM the pool is exhausted, or the
 * endpoint's share of it. When memory has run out that other endpoints keep unused, this now and then asks them for it
 * and waits up to 3 milliseconds for that.
 */
LINXIPC_API LinxSignal *linx_alloc(LINX *linx, uint32_t size, uint32_t number);

/* Frees the signal and sets the pointer to null. 0 or -1. */
LINXIPC_API int linx_free_buf(LINX *linx, LinxSignal **signal);

/*
 * Sends the signal to `to`; ownership moves, nothing is copied, signals from one sender never overtake each other.
 * 0, or -1: ECONNRESET the peer has ended, ESRCH there never was such a spid. The pointer becomes null either way.
 */
LINXIPC_API int linx_send(LINX *linx, LinxSignal **signal, LinxSpid to);

/*
 * Waits for a signal that `selection` allows and returns its size in bytes, number word included. `selection` is a
 * count, then that many signal numbers; a count of 0 selects any signal. Other signals stay queued in their order.
 * -1 with errno on failure, `*signal` null; EINTR is not among the errors: an interrupted wait goes on.
 */
LINXIPC_API int linx_receive(LINX *linx, LinxSignal **signal, const uint32_t *selection);

/* The same for at most `milliseconds`; 0 does not wait. A wait that times out returns 0 with `*signal` null. */
LINXIPC_API int linx_receive_w_tmo(LINX *linx, LinxSignal **signal, uint32_t milliseconds, const uint32_t *selection);

/* The spid that sent the signal (the caller's own for a time-out or a newly allocated signal), or 0 with errno. */
LINXIPC_API LinxSpid linx_sender(LINX *linx, LinxSignal **signal);

/*
 * Stores the name of `spid` in `*name`, to be given back with linx_free_name. The name of an endpoint that has ended is
 * known until its entry is reused; the oldest entries are reused first. 0, or -1: ESRCH unknown spid, ENOMEM.
 */
LINXIPC_API int linx_get_name(LINX *linx, LinxSpid spid, char **name);

/* Gives back a name and sets the pointer to null. 0 or -1. */
LINXIPC_API int linx_free_name(LINX *linx, char **name);

/*
 * Asks for `*signal`, taken over, to arrive after `milliseconds`; LINX_OS_TIMEOUT_SIG when `signal` or `*signal` is
 * null. Returns the reference for linx_cancel_tmo, or 0: ENOMEM.
 */
LINXIPC_API LinxRef linx_request_tmo(LINX *linx, uint32_t milliseconds, LinxSignal **signal);

/*
 * Cancels a time-out, even one that has fired and has not been received yet; frees its signal and sets the reference to
 * 0. Returns 0, or -1 with EINVAL for a null or unknown reference.
 */
LINXIPC_API int linx_cancel_tmo(LINX *linx, LinxRef *reference);

#ifdef __cplusplus
}
#endif

#endif
