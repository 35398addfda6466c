#include "SorviKit/core/SerialWriter.h"

SerialWriter::SerialWriter()
{
    // One thread: jobs of equal priority start in the order they were posted.
    m_thread.setMaxThreadCount(1);
    m_thread.setExpiryTimeout(-1);
}

SerialWriter::~SerialWriter()
{
    m_thread.waitForDone();
}

void SerialWriter::post(std::function<void()> job)
{
    m_thread.start(std::move(job));
}

void SerialWriter::waitForIdle()
{
    m_thread.waitForDone();
}
