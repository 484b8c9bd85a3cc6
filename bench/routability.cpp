// Measures the growth of sorting by routability with the number of candidates and with the
// number of interface addresses. The interfaces are real, in a namespace.

#include "common/compatibility_simple/network/routability.h"
#include "tests/support/namespace.h"

#include <benchmark/benchmark.h>

#include <QRandomGenerator>

#include <cstdio>
#include <cstdlib>

namespace {

QList<QHostAddress> candidates(qint64 count)
{
    QRandomGenerator random(1);
    QList<QHostAddress> addresses;
    for (qint64 i = 0; i < count; ++i) {
        addresses += QHostAddress(0x0a000000u | (random.generate() >> 8));
    }
    return addresses;
}

// Adds addresses to the interface up to `count`. It removes none: call it with growing counts.
void giveInterfaceAddresses(qint64 count)
{
    static qint64 given = 0;
    for (; given < count; ++given) {
        const QString command = QStringLiteral("ip addr add 10.%1.0.1/16 dev eth0").arg(given);
        if (system(qPrintable(command)) != 0) {
            perror(qPrintable(command));
            abort();
        }
    }
}

void order(benchmark::State& state, qint64 candidateCount, qint64 addressCount)
{
    giveInterfaceAddresses(addressCount);
    const QList<QHostAddress> addresses = candidates(candidateCount);
    for (auto _ : state) {
        benchmark::DoNotOptimize(sortAddressesByPotentialRoutability(addresses));
    }
    state.SetComplexityN(state.range(0));
}

void byInterfaceAddresses(benchmark::State& state)
{
    order(state, 4096, state.range(0));
}

void byCandidates(benchmark::State& state)
{
    order(state, state.range(0), 64);
}

BENCHMARK(byInterfaceAddresses)->RangeMultiplier(2)->Range(1, 64)->Complexity(benchmark::oN);
BENCHMARK(byCandidates)->RangeMultiplier(2)->Range(64, 4096)->Complexity(benchmark::oN);

} // namespace

int main(int argc, char** argv)
{
    if (!Namespace::enter("ip link add eth0 type veth peer name eth1")) {
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
