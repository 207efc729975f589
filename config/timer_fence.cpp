#include "config/timer_fence.h"

namespace tarquel {

pthread_mutex_t TimerFence::sMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t TimerFence::sJobEnded = PTHREAD_COND_INITIALIZER;
TimerFence* TimerFence::sFirst = nullptr;

void TimerFence::Open() {
    pthread_mutex_lock(&sMutex);
    mNext = sFirst;
    sFirst = this;
    pthread_mutex_unlock(&sMutex);
}

void TimerFence::Close() {
    pthread_mutex_lock(&sMutex);
    for (TimerFence** at = &sFirst; *at != nullptr; at = &(*at)->mNext) {
        if (*at != this) continue;
        *at = mNext;
        break;
    }
    while (mJobs > 0) pthread_cond_wait(&sJobEnded, &sMutex);
    pthread_mutex_unlock(&sMutex);
}

void TimerFence::Run(void* owner, void (*job)(void* owner)) {
    pthread_mutex_lock(&sMutex);
    TimerFence* fence = sFirst;
    while (fence != nullptr && fence->mOwner != owner) fence = fence->mNext;
    if (fence != nullptr) {
        ++fence->mJobs;
        pthread_mutex_unlock(&sMutex);
        job(owner);
        pthread_mutex_lock(&sMutex);
        --fence->mJobs;
        pthread_cond_broadcast(&sJobEnded);
    }
    pthread_mutex_unlock(&sMutex);
}

}  // namespace tarquel
