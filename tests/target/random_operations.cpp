// Calls every operation at random, of boards, of sensor drivers alone and of the FPGA's cores
// alone, on heads with and without faults, and prints all that came of it: the files that were
// there, results, status lines, published words, what was printed, and every event at the device
// boundary with its time. Two builds that print the same bytes behave the same.
//
// Arguments: seed, number of boards or drivers, operations each. The working directory is written
// to.

#include <cstdint>
#include <cstdlib>
#include <iostream>

#include "sim/virtual_head.h"
#include "tests/support/traced_output.h"
#include "tests/target/random_board.h"
#include "tests/target/random_drivers.h"
#include "tests/target/random_files.h"
#include "tests/target/random_head.h"

namespace {

void print(sim::tcVirtualHead& head, std::ostream& to) {
    for (const std::string& line : head.timedLines()) {
        to << line << "\n";
    }
    head.clearLog();
}

template<class Calls>
void makeCalls(Calls& calls, int operations, std::ostream& to) {
    print(calls.head(), to);
    for (int step = 0; step < operations; ++step) {
        calls.step();
        print(calls.head(), to);
    }
}

/// Standard output and error go into the head's log, in order with what the hardware saw.
void liveOnce(tcChance& chance, int operations, std::ostream& to) {
    writeAnyFiles(chance, to);
    const int kind = chance.upTo(5);
    to << "LIFE of "
       << (kind == 0   ? "a sensor driver"
           : kind == 1 ? "the FPGA"
                       : "a board")
       << "\n";
    sim::tcVirtualHead head = anyHead(chance, to).build();
    const tcTracedOutput out(std::cout,
                             [&](const std::string& piece) { head.note("OUT " + oneLine(piece)); });
    const tcTracedOutput err(std::cerr,
                             [&](const std::string& piece) { head.note("ERR " + oneLine(piece)); });
    if (kind == 0) {
        tcRandomSensor sensor(chance, head);
        makeCalls(sensor, operations, to);
    } else if (kind == 1) {
        tcRandomFpga fpga(chance, head);
        makeCalls(fpga, operations, to);
    } else {
        tcRandomBoard board(chance, head);
        makeCalls(board, operations, to);
        board.finish();
    }
    print(head, to);
    to << head.summary();
}

} // namespace

int main(int count, char** values) {
    if (count != 4) {
        std::cerr << "usage: random_operations SEED LIVES OPERATIONS\n";
        return 2;
    }
    tcChance chance(static_cast<std::uint32_t>(std::strtoul(values[1], nullptr, 0)));
    const int lives = std::atoi(values[2]);
    const int operations = std::atoi(values[3]);
    std::ostream to(std::cout.rdbuf()); // what the lives print goes elsewhere meanwhile
    for (int life = 0; life < lives; ++life) {
        to << "life " << life << "\n";
        liveOnce(chance, operations, to);
    }
    return to.flush() ? 0 : 1;
}
