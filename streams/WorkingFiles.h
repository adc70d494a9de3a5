#pragma once

#include <functional>
#include <string>
#include <vector>

namespace quorval {

// The sound files and folders this program keeps in the temporary folder, named so that a later
// start can tell whose they are and what they hold:
//   quorval-copy-<pid>-<uuid>.wav       the working copy of an opened file: scratch
//   quorval-recording-<pid>-<uuid>.wav  a recording: never removed here, offered for recovery
//   quorval-options-<pid>-<suffix>/     a private options folder of one run: scratch
// <pid> is the owning process. Scratch whose owner is gone (it was killed, or aborted) is
// removed by removeStale(); the owner removes its own through track() on fatal signals.
//
// Threading: every function may be called from any thread; removeTrackedNow() also from a
// signal handler.
class WorkingFiles
{
public:
    enum class Kind
    {
        copy,
        recording,
    };

    // A new path in the temporary folder (TMPDIR or /tmp) for a working file of this process.
    [[nodiscard]] static std::string newPath(Kind kind);
    // The name pattern of a private options folder of this process, for QTemporaryDir (its
    // XXXXXX replaced by random letters).
    [[nodiscard]] static std::string optionsFolderTemplate();
    // Recordings' working files are told apart by name.
    [[nodiscard]] static bool isRecording(const std::string &path);

    // Remembers scratch to remove on a fatal signal, until forgotten; at most kTracked at once
    // (further ones are left to removeStale() of a later start).
    static constexpr int kTracked = 32;
    static void track(const std::string &path);
    static void forget(const std::string &path);
    // Removes every tracked file and folder (with what it holds), and forgets them.
    static void removeTracked();
    // The same from a signal handler: unlinks tracked files, removes tracked folders that are
    // empty (listing a folder is not safe there: removeStale() of a later start takes the rest).
    static void removeTrackedNow() noexcept;

    // Removes a scratch file on a background thread of low priority, after running `release`
    // there (closing the last descriptor: the disk space of a long copy is freed then, which can
    // take tens of milliseconds). Meant for callers on the analysis' path. The file stays tracked
    // until it is gone, so a fatal signal meanwhile still removes it. After finishRemovals() the
    // work is done on the calling thread.
    static void removeInBackground(const std::string &path, std::function<void()> release = {});
    // Waits for every background removal and ends the thread: part of shutdown.
    static void finishRemovals();
    // Background removals asked for and not yet done.
    [[nodiscard]] static int pendingRemovals();

    // Removes the scratch (copies and options folders) of processes that are gone; answers how
    // many entries were removed. Only this user's own entries go, as this program makes them (a
    // copy is a regular file, an options folder holds regular files): other users' entries,
    // links and folders named like copies stay, even when run as root. Recordings are never
    // touched.
    static int removeStale();
    // Recordings left by processes that are gone, oldest first: what the window offers to
    // recover. Only files named exactly as newPath() names them, regular files of this user
    // (a link is not followed) with at least one frame recorded.
    [[nodiscard]] static std::vector<std::string> orphanedRecordings();

    // The temporary folder used.
    [[nodiscard]] static std::string folder();
};

} // namespace quorval
