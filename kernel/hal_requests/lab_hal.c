// SPDX-License-Identifier: GPL-2.0
//
// What the lab needs from inside the kernel, in /sys/kernel/lab_hal:
//   min, max  the perf HAL's own requests beside the programs': "policy4 2112000", "gpu 500000"
//             (kHz), "gpu none", "all none"
//   delay_ms  how long a limit and a change of frequency take from now on: a slow driver
//   settle    a read waits until every limit that was asked for is in force
#include <linux/cpu.h>
#include <linux/cpufreq.h>
#include <linux/delay.h>
#include <linux/kobject.h>
#include <linux/module.h>
#include <linux/of.h>
#include <linux/of_platform.h>
#include <linux/platform_device.h>
#include <linux/pm_qos.h>
#include <linux/string.h>
#include <linux/sysfs.h>

#define MAX_POLICIES 8

enum side { SIDE_MIN, SIDE_MAX, SIDES };

static const enum freq_qos_req_type cpu_types[SIDES] = { FREQ_QOS_MIN, FREQ_QOS_MAX };
static const enum dev_pm_qos_req_type device_types[SIDES] = {
	DEV_PM_QOS_MIN_FREQUENCY,
	DEV_PM_QOS_MAX_FREQUENCY,
};

struct lab_policy {
	struct cpufreq_policy *policy;
	char name[16];
	struct freq_qos_request requests[SIDES];
	struct notifier_block slow[SIDES];
};

static struct lab_policy policies[MAX_POLICIES];
static int policy_count;
static struct platform_device *gpu;
static struct dev_pm_qos_request gpu_requests[SIDES];
static DEFINE_MUTEX(lock);
static unsigned int delay_ms;

static int ask_policy(struct lab_policy *it, enum side side, bool is_none, s32 khz)
{
	struct freq_qos_request *request = &it->requests[side];
	int result = 0;

	if (is_none) {
		if (freq_qos_request_active(request))
			result = freq_qos_remove_request(request);
	} else if (freq_qos_request_active(request)) {
		result = freq_qos_update_request(request, khz);
	} else {
		result = freq_qos_add_request(&it->policy->constraints, request, cpu_types[side],
					      khz);
	}
	return result < 0 ? result : 0;
}

static int ask_gpu(enum side side, bool is_none, s32 khz)
{
	struct dev_pm_qos_request *request = &gpu_requests[side];
	int result = 0;

	if (!gpu)
		return is_none ? 0 : -ENODEV;
	if (is_none) {
		if (dev_pm_qos_request_active(request))
			result = dev_pm_qos_remove_request(request);
	} else if (dev_pm_qos_request_active(request)) {
		result = dev_pm_qos_update_request(request, khz);
	} else {
		result = dev_pm_qos_add_request(&gpu->dev, request, device_types[side], khz);
	}
	return result < 0 ? result : 0;
}

static ssize_t store_request(enum side side, const char *text, size_t count)
{
	char name[16];
	char value[16];
	bool is_none, is_all, is_known;
	int i, khz = 0, result = 0;

	if (sscanf(text, "%15s %15s", name, value) != 2)
		return -EINVAL;
	is_none = !strcmp(value, "none");
	if (!is_none && kstrtoint(value, 10, &khz))
		return -EINVAL;
	is_all = !strcmp(name, "all");
	is_known = is_all;
	mutex_lock(&lock);
	if (is_all || !strcmp(name, "gpu")) {
		is_known = true;
		result = ask_gpu(side, is_none, khz);
	}
	for (i = 0; i < policy_count && !result; i++) {
		if (!is_all && strcmp(name, policies[i].name))
			continue;
		is_known = true;
		result = ask_policy(&policies[i], side, is_none, khz);
	}
	mutex_unlock(&lock);
	if (!is_known)
		return -ENODEV;
	return result ? result : count;
}

static ssize_t min_store(struct kobject *it, struct kobj_attribute *attribute, const char *text,
			 size_t count)
{
	return store_request(SIDE_MIN, text, count);
}

static ssize_t max_store(struct kobject *it, struct kobj_attribute *attribute, const char *text,
			 size_t count)
{
	return store_request(SIDE_MAX, text, count);
}

static ssize_t delay_ms_store(struct kobject *it, struct kobj_attribute *attribute,
			      const char *text, size_t count)
{
	int error = kstrtouint(text, 10, &delay_ms);

	return error ? error : count;
}

static ssize_t settle_show(struct kobject *it, struct kobj_attribute *attribute, char *text)
{
	int i;

	for (i = 0; i < policy_count; i++)
		flush_work(&policies[i].policy->update);
	return sprintf(text, "settled\n");
}

static struct kobj_attribute min_attribute = __ATTR_WO(min);
static struct kobj_attribute max_attribute = __ATTR_WO(max);
static struct kobj_attribute delay_attribute = __ATTR_WO(delay_ms);
static struct kobj_attribute settle_attribute = __ATTR_RO(settle);

static struct attribute *attributes[] = {
	&min_attribute.attr,
	&max_attribute.attr,
	&delay_attribute.attr,
	&settle_attribute.attr,
	NULL,
};
static const struct attribute_group group = { .attrs = attributes };
static struct kobject *folder;

// In the writer's own time: a limit that takes long.
static int be_slow(struct notifier_block *block, unsigned long value, void *data)
{
	if (delay_ms)
		msleep(delay_ms);
	return NOTIFY_OK;
}

// In the driver's: a change of frequency that takes long.
static int change_slowly(struct notifier_block *block, unsigned long when, void *data)
{
	if (delay_ms && when == CPUFREQ_PRECHANGE)
		msleep(delay_ms);
	return NOTIFY_OK;
}

static struct notifier_block transition = { .notifier_call = change_slowly };

static int add_policy(unsigned int cpu)
{
	struct cpufreq_policy *policy = cpufreq_cpu_get(cpu);
	struct lab_policy *it = &policies[policy_count];
	int side;

	if (!policy || policy->cpu != cpu || policy_count == MAX_POLICIES) {
		if (policy)
			cpufreq_cpu_put(policy);
		return 0;
	}
	// The reference is kept: the policy is asked while its CPUs are away, too.
	it->policy = policy;
	snprintf(it->name, sizeof(it->name), "policy%u", cpu);
	policy_count++;
	for (side = 0; side < SIDES; side++) {
		it->slow[side].notifier_call = be_slow;
		if (freq_qos_add_notifier(&policy->constraints, cpu_types[side], &it->slow[side]))
			return -EINVAL;
	}
	return 0;
}

static int __init lab_hal_init(void)
{
	struct device_node *node = of_find_compatible_node(NULL, NULL, "fsl,imx8mm-noc");
	unsigned int cpu;
	int error;

	if (node) {
		gpu = of_find_device_by_node(node);
		of_node_put(node);
	}
	for_each_possible_cpu(cpu) {
		error = add_policy(cpu);
		if (error)
			return error;
	}
	error = cpufreq_register_notifier(&transition, CPUFREQ_TRANSITION_NOTIFIER);
	if (error)
		return error;
	folder = kobject_create_and_add("lab_hal", kernel_kobj);
	return folder ? sysfs_create_group(folder, &group) : -ENOMEM;
}
module_init(lab_hal_init);

// Stays until the machine is switched off: there is no way to unload it.
MODULE_DESCRIPTION("Frequency requests of the lab's perf HAL");
MODULE_LICENSE("GPL");
