#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class Clock;
class QTimer;
class SettingsStore;

// Keeps the web port forwarded by the home router over UPnP. Every router
// conversation runs on a worker thread and its answer comes back through the
// event loop: "Success", "Failed", or the mapping list.
class PortMapping : public QObject {
    Q_OBJECT
public:
    using Done = std::function<void(const QString& result)>;

    // The two timers are the application's; this object drives their ticks.
    PortMapping(SettingsStore& settings, const Clock& clock, QTimer& timUPnPDelay,
                QTimer& timUPnPReWrite, QObject* parent = nullptr);
    ~PortMapping() override; // answers still under way are dropped

    // The router operations.
    void UPnPAddMapping(const QString& port, const QString& client, const QString& protocol,
                        const QString& description, Done done);
    void UPnPRemoveMapping(const QString& port, const QString& protocol, Done done);
    void UPnPListMappings(Done done);

    void AddMappingPort(const QString& port, const QString& client, const QString& protocol,
                        const QString& description, Done done);
    void MapWebPort(Done done);
    // Also ends both timers and forgets the mapping, whatever the router says.
    void DeleteMappingPort(const QString& port, const QString& protocol, Done done = {});
    // A failed list is asked once more after 5 seconds.
    void ListMapping(Done done);

    // The end of the program: removes the web port's mapping, waiting with
    // events running for at most timeoutMs.
    void RemoveAtExit(int timeoutMs = 5000);

    bool MappingDone = false;
    QDateTime MappingTime;

    // How long discovery waits for the router's answer.
    static constexpr int DiscoveryMs = 2000;

private:
    void delayTick();
    void reWriteTick();
    void run(std::function<QString()> work, Done done);

    SettingsStore& settings_;
    const Clock& clock_;
    QTimer& timUPnPDelay_;
    QTimer& timUPnPReWrite_;
    // Bumped by DeleteMappingPort so that an add still under way cannot
    // mark the mapping as done afterwards.
    quint64 generation_ = 0;
    bool reWriteBusy_ = false;
    struct Link;
    std::shared_ptr<Link> link_; // lets a worker reach this object while it lives
};
