#include "RunThreads.h"

#include <pthread.h>

#include <condition_variable>
#include <list>
#include <mutex>
#include <vector>

namespace {

struct Worker {
    pthread_t thread{};
    std::condition_variable wake;
    std::function<void()> job;  // guarded by Pool::mutex
    bool quit = false;          // guarded by Pool::mutex
    bool finished = false;      // left its loop; to be joined
};

struct Pool {
    std::mutex mutex;
    std::list<Worker> workers;   // every thread not joined yet
    std::vector<Worker*> idle;   // waiting for a job
};

// Never destroyed: idle threads still wait on their conditions when a
// process ends without JoinAll.
Pool& ThePool() {
    static Pool* pool = new Pool;
    return *pool;
}

void* WorkerLoop(void* argument) {
    Worker& worker = *static_cast<Worker*>(argument);
    Pool& pool = ThePool();
    std::unique_lock<std::mutex> lock(pool.mutex);
    for (;;) {
        worker.wake.wait(lock, [&] { return worker.job || worker.quit; });
        if (!worker.job) break;
        std::function<void()> job = std::move(worker.job);
        worker.job = nullptr;
        lock.unlock();
        job();
        job = nullptr;  // the job's captures go before the thread is offered again
        lock.lock();
        if (pool.idle.size() >= RunThreads::MaxIdle) break;
        pool.idle.push_back(&worker);
    }
    worker.finished = true;
    return nullptr;
}

// Joins the threads that left their loop; under no lock.
void JoinFinished() {
    Pool& pool = ThePool();
    std::vector<pthread_t> finished;
    {
        std::lock_guard<std::mutex> lock(pool.mutex);
        for (auto worker = pool.workers.begin(); worker != pool.workers.end();) {
            if (!worker->finished) {
                ++worker;
                continue;
            }
            finished.push_back(worker->thread);
            worker = pool.workers.erase(worker);
        }
    }
    for (pthread_t thread : finished) pthread_join(thread, nullptr);
}

}  // namespace

namespace RunThreads {

std::size_t StackSize() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 4 * 512 * 1024;
#else
    return 512 * 1024;
#endif
}

bool Dispatch(std::function<void()> job) {
    JoinFinished();
    Pool& pool = ThePool();
    std::lock_guard<std::mutex> lock(pool.mutex);
    if (!pool.idle.empty()) {
        Worker* worker = pool.idle.back();
        pool.idle.pop_back();
        worker->job = std::move(job);
        worker->wake.notify_one();
        return true;
    }
    Worker& worker = pool.workers.emplace_back();
    worker.job = std::move(job);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, StackSize());
    int failure = pthread_create(&worker.thread, &attributes, WorkerLoop, &worker);
    pthread_attr_destroy(&attributes);
    if (failure != 0) {
        pool.workers.pop_back();
        return false;
    }
    return true;
}

void JoinAll() {
    Pool& pool = ThePool();
    std::vector<pthread_t> threads;
    {
        std::lock_guard<std::mutex> lock(pool.mutex);
        for (Worker& worker : pool.workers) {
            worker.quit = true;
            worker.wake.notify_one();
            threads.push_back(worker.thread);
        }
    }
    for (pthread_t thread : threads) pthread_join(thread, nullptr);
    std::lock_guard<std::mutex> lock(pool.mutex);
    pool.workers.clear();
    pool.idle.clear();
}

}  // namespace RunThreads
