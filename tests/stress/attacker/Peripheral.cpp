#include "Peripheral.h"

#include <sys/wait.h>

#include <unistd.h>

#include <sstream>
#include <stdexcept>

namespace attacker {

Peripheral::Peripheral(const std::string& program)
{
    int orders[2];
    int answers[2];
    if (pipe(orders) != 0 || pipe(answers) != 0) {
        throw std::runtime_error("no pipes");
    }
    m_process = fork();
    if (m_process == 0) {
        dup2(orders[0], STDIN_FILENO);
        dup2(answers[1], STDOUT_FILENO);
        for (const int end : {orders[0], orders[1], answers[0], answers[1]}) {
            close(end);
        }
        execl(program.c_str(), program.c_str(), nullptr);
        _exit(127);
    }
    close(orders[0]);
    close(answers[1]);
    m_input = fdopen(orders[1], "w");
    m_output = fdopen(answers[0], "r");
    const std::string line = readLine();
    if (line.rfind("ready ", 0) != 0) {
        throw std::runtime_error(program + " said: " + line);
    }
    m_name = line.substr(6);
}

Peripheral::~Peripheral()
{
    end();
}

bool Peripheral::end()
{
    if (m_process < 0) {
        return false;
    }
    std::fclose(m_input);
    std::fclose(m_output);
    int status = -1;
    waitpid(m_process, &status, 0);
    m_process = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

Peripheral::Figures Peripheral::order(const char* word)
{
    std::fprintf(m_input, "%s\n", word);
    std::fflush(m_input);
    std::istringstream words(readLine());
    Figures figures;
    std::string name;
    for (long value; words >> name >> value;) {
        figures[name] = value;
    }
    return figures;
}

std::string Peripheral::readLine()
{
    char line[512];
    if (!std::fgets(line, sizeof line, m_output)) {
        throw std::runtime_error("the peripheral is gone");
    }
    std::string text = line;
    text.pop_back();
    return text;
}

} // namespace attacker
