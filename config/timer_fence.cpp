#include "config/timer_fence.h"

#include <pthread.h>

namespace tarquel::timer_fence {

namespace {

// Plain memory, which serves while the process exits, too.
pthread_mutex_t sMutex = PTHREAD_MUTEX_INITIALIZER;  // guards what follows
pthread_cond_t sJobEnded = PTHREAD_COND_INITIALIZER;
void* sOwner = nullptr;
int sJobs = 0;  // that have begun and not ended

}  // namespace

void Open(void* owner) {
    pthread_mutex_lock(&sMutex);
    sOwner = owner;
    pthread_mutex_unlock(&sMutex);
}

void Close() {
    pthread_mutex_lock(&sMutex);
    sOwner = nullptr;
    while (sJobs > 0) pthread_cond_wait(&sJobEnded, &sMutex);
    pthread_mutex_unlock(&sMutex);
}

void Run(void* owner, void (*job)(void* owner)) {
    pthread_mutex_lock(&sMutex);
    const bool isOpen = owner == sOwner;
    if (isOpen) ++sJobs;
    pthread_mutex_unlock(&sMutex);
    if (!isOpen) return;
    job(owner);
    pthread_mutex_lock(&sMutex);
    --sJobs;
    pthread_cond_broadcast(&sJobEnded);
    pthread_mutex_unlock(&sMutex);
}

}  // namespace tarquel::timer_fence
