// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/backoff_p.h"
#include "service/descriptor_p.h"
#include "service/filestamp_p.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <chrono>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace KezService {

/// How far a consumer is with a file.
struct WorkRecord {
    enum class State : quint8 { Waiting, Begun, Settled };

    State state = State::Waiting;
    bool hasCompany = false; ///< it is under suspicion, and other work may begin beside it
    quint16 tries = 0;       ///< those that ended with "retry"
    quint16 strikes = 0;     ///< how often the process died during it, since it last ended normally
};

/// Remembers across restarts what each consumer has begun and done, file by file.
///
/// A file of text lines that only grows: a record is in the kernel, by one write, when the call
/// returns, so it survives the death of the process. sync() makes it survive that of the machine.
/// From time to time the journal is written anew, without what is over.
///
///     kez-journal 1
///     C 0 ledger 5d1c                          the number of a consumer
///     F 17 9f3a… 4711 … 0 order.xml 02aa       a file: key, stamp, linked or not, name
///     B 17 0 77e0     D … R … L …              begun; done, to be retried, left at a stop
///     J 17 0 43aa                              other work may begin beside it
///     T 17 0 3 1 b5c2                          tries and strikes so far
///     K 17 91d0       X 17 6e13                has got another link; forgotten
///
/// Each line ends with its checksum. A last line that breaks off, as a death during a write leaves
/// it, is dropped. A file with any other fault, or something else than a file, is put aside, and
/// the journal begins anew: what was done may then be done again, and nothing is lost.
///
/// If the journal cannot be written (full disk), the log says so once, and all goes on without it
/// until it can. A start that cannot write it anew goes on with the file that it has read. If it is
/// removed from outside, it is written anew.
///
/// *Threads*: any thread, except sync() and compact(): one thread.
/// *Owns*: its file.
/// *Fails*: the constructor throws Exception.
class Journal {
public:
    /// What is known of a file.
    struct Entry {
        quint64 number = 0; ///< in the order of entry
        QString key;        ///< drawn at random when the file first entered
        QString name;
        FileStamp stamp;
        bool isLinked = false;         ///< its time of change counts no more
        bool isPresent = false;        ///< it entered since the journal was read
        std::vector<WorkRecord> works; ///< by consumer

        bool isOf(const FileStamp& found) const
        {
            return stamp == found || (isLinked && stamp.hasContentOf(found));
        }
    };

    /// A step of a consumer's work.
    struct Step {
        enum Kind : char { Begun = 'B', Joined = 'J', Done = 'D', Retried = 'R', Left = 'L' };

        Kind kind;
        quint64 number;
        int consumer;
    };

    using NamedStamp = std::pair<QString, FileStamp>;
    using Clock = std::chrono::steady_clock;

    /// Reads the spool's journal, if there is one. Work that a death of the process has interrupted
    /// is Waiting again, with one more strike; but if suspect work was alone, only that has one
    /// more. With `isKept` false, all is kept in memory only.
    Journal(const QString& spool, const QStringList& consumers, bool isKept);

    /// How many bytes the file may have before it is written anew, if it had so many when that was
    /// last done. It stays below the size that a start still reads.
    static qint64 longestBefore(qint64 compacted);

    /// Whether the process died during some work that has not ended normally since.
    bool hasStrikes() const;

    /// Makes room for so many files.
    void reserve(qsizetype files);

    /// Puts the names of files that are known in the order of their entry, and the others behind
    /// them in the order that they have.
    void sortByEntry(QStringList& names) const;

    /// What is known of these files; unknown ones are entered, in this order.
    std::vector<Entry> enter(const std::vector<NamedStamp>& files);

    void record(std::span<const Step> steps);

    /// The file gets one more link, which changes its time of change.
    void recordLink(quint64 number);

    void forget(const std::vector<quint64>& numbers);

    /// Forgets the files that did not enter since the journal was read.
    void forgetAbsent();

    /// Waits until the records are on the disk. Writes the journal anew if it has grown by much, if
    /// it could not be written before, or if its file was removed.
    void sync();

    /// Writes the journal anew, without what is over.
    void compact();

private:
    class Reader;

    void load();
    QString read(const Descriptor& file);
    void putAside(const QString& why);
    void goOnWithFile();
    std::string addStrikes();
    Entry& newEntry(const QString& name, const FileStamp& stamp);
    bool isInPlace() const;
    void rewrite();
    std::string wholeText() const;
    void append(std::string_view lines);
    void giveUp(int error);
    void postpone();

    const QString _path;
    const QStringList _consumers;
    const bool _isKept;

    bool _hasStrikes = false; // since the journal was read

    mutable std::mutex _mutex; // guards the rest
    std::unordered_map<quint64, Entry> _entries;
    QHash<QString, quint64> _numbers; // by name: the newest entry
    quint64 _lastNumber = 0;
    Descriptor _file; // not open while the journal cannot be written
    qint64 _size = 0;
    qint64 _compactedSize = 0;
    bool _isUnsynced = false;
    bool _isGivenUp = false;          // the log says so
    Clock::time_point _nextAttempt{}; // to write anew, after a failure
    Backoff _attempts;
};

} // namespace KezService
