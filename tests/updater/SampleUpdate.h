#pragma once

#include "tests/updater/KeyPair.h"
#include "tests/updater/ZipBuilder.h"

#include <QByteArray>
#include <QMap>

#include <functional>

/// An update that can be changed at every stage of its making. As it stands it is a good one.
struct SampleUpdate
{
    static constexpr auto kTarget = "windows-x64";

    QByteArray version = "1.0.1";
    QByteArray target = kTarget;
    QMap<QByteArray, QByteArray> files = {{"VeyraLauncher.exe", "the new launcher"},
                                          {"platforms/qwindows.dll", "a plugin"},
                                          {"vide.txt", ""}};

    // Called with what was made so far.
    std::function<void(QByteArray &list)> changeList = {};       ///< before it is signed
    std::function<void(QByteArray &list)> changeSignedList = {}; ///< afterwards
    std::function<void(QByteArray &signature)> changeSignature = {};
    std::function<void(ZipBuilder &zip)> changeZip = {};
    std::function<void(QByteArray &bytes)> changeBytes = {};

    QByteArray archive(const KeyPair &keys) const;
};

/// The text of a list of these files.
QByteArray sampleList(const QByteArray &version, const QByteArray &target,
                      const QMap<QByteArray, QByteArray> &files);
