#include "common/imgproc/src/overlayarray.h"
#include "common/imgproc/src/overlay.h"

#include <cstdio>

COverlayArray::COverlayArray()
  : m_currentIndex(-1)
  , m_currentGroup(0)
{
    for (int i = 0; i < SLOTS; ++i)
        m_slots[i] = nullptr;
}

COverlayArray::~COverlayArray()
{
    clear();
}

void COverlayArray::clear()
{
    for (int i = 0; i < SLOTS; ++i)
    {
        delete m_slots[i];
        m_slots[i] = nullptr;
    }
    m_currentIndex = -1;
    m_currentGroup = 0;
}

int COverlayArray::createNewOverlay()
{
    for (int i = 0; i < SLOTS; ++i)
    {
        if (m_slots[i] == nullptr)
        {
            char name[16];
            snprintf(name, sizeof(name), "%d", i);
            m_slots[i] = new COverlay(name);
            return i;
        }
    }
    return -1;
}

unsigned int COverlayArray::writeOverlays(const char* prefix) const
{
    unsigned int result = 0;
    for (int i = 0; i < SLOTS; ++i)
    {
        if (m_slots[i] == nullptr)
            continue;
        char path[256];
        snprintf(path, sizeof(path), "%s_%s.ovl", prefix ? prefix : "", m_slots[i]->m_name.c_str());
        result += m_slots[i]->writeToFile(path);
    }
    return result;
}

COverlay* COverlayArray::get(int slot) const
{
    return slot >= 0 && slot < SLOTS ? m_slots[slot] : nullptr;
}

bool COverlayArray::empty() const
{
    for (int i = 0; i < SLOTS; ++i)
        if (m_slots[i] != nullptr)
            return false;
    return true;
}
