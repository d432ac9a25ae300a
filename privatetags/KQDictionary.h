// Data dictionary entries of the "KQ group A" private block.
#ifndef KQDICTIONARY_H
#define KQDICTIONARY_H

class KQDictionary
{
public:
    // Adds the block's entries to DCMTK's global dictionary; later calls do nothing.
    // Every program calls it at start-up, before it reads a file.
    static void registerEntries();
};

#endif
