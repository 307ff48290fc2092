#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

class Clock;
class SettingsStore;

// Keeps the web port forwarded by the home router over UPnP. Every router
// conversation runs on a worker thread and its answer comes back through the
// event loop: "Success", "Failed", or the mapping list.
class PortMapping : public QObject {
    Q_OBJECT
public:
    using Done = std::function<void(const QString& result)>;

    PortMapping(SettingsStore& settings, const Clock& clock, QObject* parent = nullptr);
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
    // A CA checks a name over HTTP on port 80: while it may, the router
    // forwards external port 80 to the web port, and no longer afterwards.
    void MapChallengePort(bool open, Done done = {});
    bool ChallengeMapped() const { return challengeMapped_; }
    // A failed list is asked once more after 5 seconds.
    void ListMapping(Done done);

    // The end of the program: removes the web port's mapping, waiting with
    // events running for at most timeoutMs.
    void RemoveAtExit(int timeoutMs = 5000);

    // Tries to map the web port every 10 s until it is done, then keeps it
    // there; StartSoon makes the tries come every 100 ms.
    void Start();
    void StartSoon();
    // Ends both the tries and the keep-alive; the mapping stays as it is.
    void Stop();
    bool Trying() const { return timUPnPDelay_.isActive(); }
    bool KeepingAlive() const { return timUPnPReWrite_.isActive(); }
    int TryIntervalMs() const { return timUPnPDelay_.interval(); }
    // For tests: shorter waits.
    void setIntervalsMs(int tryMs, int keepAliveMs) {
        timUPnPDelay_.setInterval(tryMs);
        timUPnPReWrite_.setInterval(keepAliveMs);
    }

    bool MappingDone = false;
    QDateTime MappingTime;

    // How long discovery waits for the router's answer.
    static constexpr int DiscoveryMs = 2000;

signals:
    // A try begins: the try timer is off until it has failed.
    void tryStarted();

private:
    void delayTick();
    void reWriteTick();
    void run(std::function<QString()> work, Done done);
    void addMapping(int external, int internal, const QString& client, const QString& protocol,
                    const QString& description, Done done);

    SettingsStore& settings_;
    const Clock& clock_;
    QTimer timUPnPDelay_;   // 10 s: a mapping try
    QTimer timUPnPReWrite_; // 30 s: keep-alive
    // Bumped by DeleteMappingPort so that an add still under way cannot
    // mark the mapping as done afterwards.
    quint64 generation_ = 0;
    bool reWriteBusy_ = false;
    bool challengeMapped_ = false, challengeWanted_ = false;
    struct Link;
    std::shared_ptr<Link> link_; // lets a worker reach this object while it lives
};
