#pragma once

#include <sys/types.h>

#include <cstdio>
#include <map>
#include <string>

namespace attacker {

/** The program stress-peripheral as a child, spoken to through pipes and not through the bus under test. */
class Peripheral
{
public:
    /** Starts it and waits until it is on the bus. */
    explicit Peripheral(const std::string& program);
    ~Peripheral();
    Peripheral(const Peripheral&) = delete;
    Peripheral& operator=(const Peripheral&) = delete;

    using Figures = std::map<std::string, long>;

    /** The unique name of its connection. */
    const std::string& name() const { return m_name; }
    Figures figures() { return order("figures"); }
    /** Has it delete and build everything. */
    Figures rebuild() { return order("rebuild"); }
    /** Lets it end. @return whether it ended by itself and well */
    bool end();

private:
    Figures order(const char* word);
    std::string readLine();

    pid_t m_process = -1;
    std::FILE* m_input = nullptr;
    std::FILE* m_output = nullptr;
    std::string m_name;
};

} // namespace attacker
