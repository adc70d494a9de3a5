#include "app/CrashRecovery.h"

#include "analysis/RegularFile.h"
#include "app/AskViewController.h"
#include "audio/Recorder.h"
#include "streams/TimeText.h"
#include "streams/WavStream.h"
#include "streams/WorkingFiles.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QLocale>

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace quorval {

std::shared_ptr<WavStream> CrashRecovery::offer(QWidget *window)
{
    const std::vector<std::string> orphans = WorkingFiles::orphanedRecordings();
    const int offers = std::min<int>(kRecoveryOffers, static_cast<int>(orphans.size()));
    for (int i = 0; i < offers; ++i) {
        const std::string &found = orphans[static_cast<std::size_t>(i)];
        const QString path = QFile::decodeName(found.c_str());
        const QFileInfo info(path);
        // Recordings are made in the recorder's format behind a 44-byte header.
        const double seconds =
            static_cast<double>(std::max<qint64>(0, info.size() - 44)) /
            (Recorder::sampleRate * Recorder::nChannels * (Recorder::bitDepth / 8.0));
        QString text =
            tr("Quorval ended before a recording was saved: %1 of sound, recorded until %2.\n\n"
               "Recover it to save it now, discard it for good, or decide later (it is kept "
               "and offered again at the next start).")
                .arg(QString::fromStdString(minutesAndSeconds(seconds)),
                     QLocale().toString(info.lastModified(), QLocale::ShortFormat));
        if (orphans.size() > 1)
            text += tr("\n\nThis is %1 of %2 recordings kept.").arg(i + 1).arg(orphans.size());
        const AskViewController::Answer answer = AskViewController::ask(
            window, tr("Recover Recording"), text, {.no = true, .cancel = true}, QString(),
            {tr("Recover"), tr("Discard"), tr("Later")});
        if (answer == AskViewController::Answer::no) {
            if (::unlink(found.c_str()) != 0)
                AskViewController::message(window, QString(),
                                           tr("Can't discard the recording %1: %2")
                                               .arg(path, QString::fromStdString(reasonOf(errno))));
            continue;
        }
        if (answer == AskViewController::Answer::cancel)
            continue;
        std::shared_ptr<WavStream> wav = WavStream::createFromFile(found);
        if (!wav)
            continue; // its reason was shown; the file stays for a later start
        // Saved only where the user says: never back into the temporary folder.
        wav->saveURL.reset();
        wav->fileTitle = "Recovered Recording";
        wav->modified = true;
        recoveredFrom = path;
        recoveredStream = wav;
        return wav;
    }
    return nullptr;
}

void CrashRecovery::settled(const std::shared_ptr<WavStream> &wav)
{
    if (recoveredFrom && wav && recoveredStream.lock() == wav) {
        QFile::remove(*std::exchange(recoveredFrom, std::nullopt));
        recoveredStream.reset();
    }
}

} // namespace quorval
