// cardhost export: certificates into files.
#include <memory>

#include <fmt/format.h>

#include "commands/commands.h"
#include "containers.h"
#include "files.h"
#include "options.h"
#include "session.h"

namespace cardhost {

namespace {

struct ExportOptions {
    std::string out;
    int container = -1;  // all of them
    bool isDer = false;
};

void writeCertificate(Report& report, const Container& container, bool isDer,
                      const std::filesystem::path& file) {
    if (isDer) {
        writeFile(file, ByteView(container.certificate.der));
    } else {
        writeFile(file, certificatePem(container.certificate));
    }
    report.row(fmt::format("container {}", container.index),
               fmt::format("{}, certificate of {}", shown(file), container.certificate.subject));
}

void exportCertificates(const ExportOptions& options, const CommonOptions& common,
                        std::FILE* stream) {
    const auto out = os::pathOf(options.out);
    const bool isOne = options.container >= 0;
    if (!isOne) makeFolder(out);
    Session session(common, stream);
    if (isOne) {
        const auto index = static_cast<unsigned>(options.container);
        writeCertificate(session.report, containerAt(session.acquisition, index), options.isDer,
                         out);
        return;
    }
    for (const Container& container : containersOf(session.acquisition)) {
        writeCertificate(session.report, container, options.isDer,
                         out / (container.certificateFile + (options.isDer ? ".der" : ".pem")));
    }
}

}  // namespace

void addExport(Commands& commands) {
    auto options = std::make_shared<ExportOptions>();
    Command command = commands.add(
        "export", "Write the card's certificates: all of them into a folder, or one into a file");
    command
        .option("-o,--out", options->out,
                "The folder for all certificates, or with --container the file for one")
        .required()
        .typeName("PATH");
    command.option("--container", options->container, "Only the certificate of this container")
        .between(0, 255)
        .typeName("N");
    command.flag("--der", options->isDer, "DER instead of PEM");
    command.does([options](const CommonOptions& common, std::FILE* stream) {
        exportCertificates(*options, common, stream);
    });
}

}  // namespace cardhost
