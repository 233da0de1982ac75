#ifndef ZOJOBGATE_H
#define ZOJOBGATE_H

/// Holds a job child back from its command until the server has saved that it runs: a server that
/// is killed between the two would leave a job that runs and still waits in the queue, so that it
/// ran again. Made before the fork, and then used by either process in its own way.
class ZoJobGate
{
public:
    ZoJobGate();
    ZoJobGate(const ZoJobGate&) = delete;
    ZoJobGate& operator=(const ZoJobGate&) = delete;
    /// Ends the waiting of a child that has not been let in.
    ~ZoJobGate();

    /// Whether it could be made; else errno tells why.
    bool isOpened() const { return ends[0] >= 0; }

    /// In the server: the job is saved, its child may begin.
    void letIn();

    /// In the child: waits. Returns false when the server has gone, or has not saved the job.
    bool pass();

private:
    int ends[2] = { -1, -1 };  // of a pipe: the child reads
};

#endif
