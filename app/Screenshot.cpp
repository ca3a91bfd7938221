#include "app/Screenshot.h"

#include "app/ParlovaApp.h"

#include <QApplication>
#include <QTextStream>
#include <QTimer>

namespace parlova {

int takeScreenshot(const QString& file, const QString& selectName, const QString& page) {
    QTextStream err(stderr);
    if (!page.isEmpty() && page != "voice" && page != "clone" && page != "calls" && page != "board") {
        err << "Unknown page \u201c" << page << "\u201d: use voice, clone, calls or board.\n";
        return 2;
    }
    ParlovaApp app(ParlovaApp::Options{});
    ui::MainWindow& window = app.window();
    if (!selectName.isEmpty() && !window.selectVoiceNamed(selectName)) {
        err << "There is no voice named \u201c" << selectName << "\u201d.\n";
        return 2;
    }
    if (page == "clone" && window.currentPage() != "clone") {
        if (app.library().voices().isEmpty()) app.library().createVoice("My Voice");
        window.selectVoiceNamed(app.library().voices().front().name);
    }
    // Call mode without Live only changes what the calls section shows.
    if (page == "calls") {
        app.engine().setCallMode(true);
        window.showSection("calls");
    }
    // An empty board shows a few sentences of the kind a call needs while
    // the picture is taken, and is empty again afterwards.
    QList<QUuid> examples;
    if (page == "board") {
        if (app.board().entries().isEmpty()) {
            const auto man = app.store().find("Middle-Aged Man");
            examples = {app.board().addSpeech("Sorry, I'm on mute with a sore throat today: I'll type.").id,
                        app.board().addSpeech("Be right back!", man ? man->id : QUuid(), {}, "Be right back").id,
                        app.board().addSpeech("Thanks everyone, talk soon.", {}, {}, "Goodbye").id};
        }
        window.showSection("board");
    }
    window.resize(1000, 760);
    window.show();
    int status = 1;
    // Give the device list a moment to arrive from the sound server.
    QTimer::singleShot(700, [&] {
        if (window.grab().save(file, "PNG")) {
            status = 0;
            err << "Wrote " << file << "\n";
        } else {
            err << "Parlova couldn't write the screenshot to \u201c" << file << "\u201d.\n";
        }
        app.engine().setCallMode(false);
        for (const QUuid& id : examples) app.board().remove(id);
        QApplication::quit();
    });
    QApplication::exec();
    return status;
}

}  // namespace parlova
