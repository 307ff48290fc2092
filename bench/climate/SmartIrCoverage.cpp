// How many of SmartIR's air-conditioner codes decode as a climate family, by
// family and by the file's maker, and how many of those agree with the mode
// and temperature the file's table files them under.
//
//   kestrava_climate_coverage FILE.json...
#include "infrared/Climate.h"
#include "infrared/formats/IrFormats.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <map>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int codes = 0, decoded = 0, checked = 0, agree = 0;
    std::map<QString, int> byFamily;
    std::map<QString, std::pair<int, int>> byMaker; // codes, decoded
    for (const QString& path : app.arguments().mid(1)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray bytes = file.readAll();
        const QString maker = QJsonDocument::fromJson(bytes)
                                  .object()
                                  .value(QStringLiteral("manufacturer"))
                                  .toString()
                                  .trimmed();
        for (const NamedSignal& code : ReadIrCodes(bytes, path).codes) {
            ++codes;
            ++byMaker[maker].first;
            const std::optional<ClimateHeard> heard = DecodeClimate(code.timing);
            if (!heard)
                continue;
            ++decoded;
            ++byMaker[maker].second;
            ++byFamily[heard->family];
            // "cool_auto_24": the mode first, the temperature last.
            const QStringList parts = code.name.split(u'_');
            QString first = parts.front();
            for (const char* twoWords : {"heat_cool", "fan_only"})
                if (code.name.startsWith(QLatin1StringView(twoWords)))
                    first = QLatin1StringView(twoWords);
            const auto mode = ClimateModeFromName(first);
            bool number = false;
            const double t = parts.back().toDouble(&number);
            if (!mode || !number || !heard->state.power || !(heard->known & ClimateHeard::Mode))
                continue;
            ++checked;
            agree += heard->state.mode == *mode &&
                     (!(heard->known & ClimateHeard::Temperature) || heard->state.temperature == t);
        }
    }
    std::printf("%d of %d codes decode as a climate family (%.1f %%); %d of %d checked against "
                "their table agree on mode and temperature\n",
                decoded, codes, codes ? 100.0 * decoded / codes : 0.0, agree, checked);
    for (const auto& [family, n] : byFamily)
        std::printf("  %-12s %6d\n", qPrintable(family), n);
    std::printf("by maker (codes, decoded):\n");
    for (const auto& [maker, n] : byMaker)
        if (n.second > 0 || n.first >= 200)
            std::printf("  %-28s %6d %6d\n", qPrintable(maker), n.first, n.second);
    return 0;
}
