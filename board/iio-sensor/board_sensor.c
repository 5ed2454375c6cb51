// SPDX-License-Identifier: GPL-2.0
/*
 * The virtual board's proximity and ambient light sensor: one IIO device
 * with a proximity channel (raw value, calibration bias, a rising and a
 * falling threshold with their events) and an illuminance channel in lux.
 *
 * There is no hardware behind it: the board's agent moves the simulated
 * hand by writing in_proximity_raw and changes the light by writing
 * in_illuminance_input. A write that crosses an enabled threshold pushes
 * the threshold event, stamped with the device's clock, as a sensor's
 * interrupt handler would.
 */
#include <linux/err.h>
#include <linux/iio/events.h>
#include <linux/iio/iio.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/platform_device.h>

struct board_sensor {
	struct mutex lock;	/* the fields below */
	int proximity;
	int calibbias;
	int lux;
	int threshold[2];	/* falling, rising */
	bool enabled[2];
};

static const struct iio_event_spec board_threshold_events[] = {
	{
		.type = IIO_EV_TYPE_THRESH,
		.dir = IIO_EV_DIR_RISING,
		.mask_separate = BIT(IIO_EV_INFO_VALUE) | BIT(IIO_EV_INFO_ENABLE),
	},
	{
		.type = IIO_EV_TYPE_THRESH,
		.dir = IIO_EV_DIR_FALLING,
		.mask_separate = BIT(IIO_EV_INFO_VALUE) | BIT(IIO_EV_INFO_ENABLE),
	},
};

static const struct iio_chan_spec board_channels[] = {
	{
		.type = IIO_PROXIMITY,
		.info_mask_separate = BIT(IIO_CHAN_INFO_RAW) |
				      BIT(IIO_CHAN_INFO_CALIBBIAS),
		.event_spec = board_threshold_events,
		.num_event_specs = ARRAY_SIZE(board_threshold_events),
	},
	{
		.type = IIO_LIGHT,
		.info_mask_separate = BIT(IIO_CHAN_INFO_PROCESSED),
	},
};

static int board_direction(enum iio_event_direction dir)
{
	return dir == IIO_EV_DIR_RISING;
}

static int board_read_raw(struct iio_dev *indio_dev,
			  struct iio_chan_spec const *chan, int *val,
			  int *val2, long mask)
{
	struct board_sensor *sensor = iio_priv(indio_dev);
	int ret = IIO_VAL_INT;

	mutex_lock(&sensor->lock);
	if (chan->type == IIO_PROXIMITY && mask == IIO_CHAN_INFO_RAW)
		*val = sensor->proximity;
	else if (chan->type == IIO_PROXIMITY && mask == IIO_CHAN_INFO_CALIBBIAS)
		*val = sensor->calibbias;
	else if (chan->type == IIO_LIGHT && mask == IIO_CHAN_INFO_PROCESSED)
		*val = sensor->lux;
	else
		ret = -EINVAL;
	mutex_unlock(&sensor->lock);
	return ret;
}

/* Pushes the events of a move of the hand from |from| to |to|. */
static void board_push_crossings(struct iio_dev *indio_dev, int from, int to)
{
	struct board_sensor *sensor = iio_priv(indio_dev);
	s64 now = iio_get_time_ns(indio_dev);

	if (sensor->enabled[0] && from >= sensor->threshold[0] &&
	    to < sensor->threshold[0])
		iio_push_event(indio_dev,
			       IIO_UNMOD_EVENT_CODE(IIO_PROXIMITY, 0,
						    IIO_EV_TYPE_THRESH,
						    IIO_EV_DIR_FALLING), now);
	if (sensor->enabled[1] && from <= sensor->threshold[1] &&
	    to > sensor->threshold[1])
		iio_push_event(indio_dev,
			       IIO_UNMOD_EVENT_CODE(IIO_PROXIMITY, 0,
						    IIO_EV_TYPE_THRESH,
						    IIO_EV_DIR_RISING), now);
}

static int board_write_raw(struct iio_dev *indio_dev,
			   struct iio_chan_spec const *chan, int val, int val2,
			   long mask)
{
	struct board_sensor *sensor = iio_priv(indio_dev);
	int ret = 0;

	if (val < 0)
		return -EINVAL;
	mutex_lock(&sensor->lock);
	if (chan->type == IIO_PROXIMITY && mask == IIO_CHAN_INFO_RAW) {
		board_push_crossings(indio_dev, sensor->proximity, val);
		sensor->proximity = val;
	} else if (chan->type == IIO_PROXIMITY &&
		   mask == IIO_CHAN_INFO_CALIBBIAS) {
		sensor->calibbias = val;
	} else if (chan->type == IIO_LIGHT &&
		   mask == IIO_CHAN_INFO_PROCESSED) {
		sensor->lux = val;
	} else {
		ret = -EINVAL;
	}
	mutex_unlock(&sensor->lock);
	return ret;
}

static int board_read_event_value(struct iio_dev *indio_dev,
				  const struct iio_chan_spec *chan,
				  enum iio_event_type type,
				  enum iio_event_direction dir,
				  enum iio_event_info info, int *val, int *val2)
{
	struct board_sensor *sensor = iio_priv(indio_dev);

	mutex_lock(&sensor->lock);
	*val = sensor->threshold[board_direction(dir)];
	mutex_unlock(&sensor->lock);
	return IIO_VAL_INT;
}

static int board_write_event_value(struct iio_dev *indio_dev,
				   const struct iio_chan_spec *chan,
				   enum iio_event_type type,
				   enum iio_event_direction dir,
				   enum iio_event_info info, int val, int val2)
{
	struct board_sensor *sensor = iio_priv(indio_dev);

	if (val < 0)
		return -EINVAL;
	mutex_lock(&sensor->lock);
	sensor->threshold[board_direction(dir)] = val;
	mutex_unlock(&sensor->lock);
	return 0;
}

static int board_read_event_config(struct iio_dev *indio_dev,
				   const struct iio_chan_spec *chan,
				   enum iio_event_type type,
				   enum iio_event_direction dir)
{
	struct board_sensor *sensor = iio_priv(indio_dev);
	int enabled;

	mutex_lock(&sensor->lock);
	enabled = sensor->enabled[board_direction(dir)];
	mutex_unlock(&sensor->lock);
	return enabled;
}

static int board_write_event_config(struct iio_dev *indio_dev,
				    const struct iio_chan_spec *chan,
				    enum iio_event_type type,
				    enum iio_event_direction dir, int state)
{
	struct board_sensor *sensor = iio_priv(indio_dev);

	mutex_lock(&sensor->lock);
	sensor->enabled[board_direction(dir)] = state;
	mutex_unlock(&sensor->lock);
	return 0;
}

static const struct iio_info board_info = {
	.read_raw = board_read_raw,
	.write_raw = board_write_raw,
	.read_event_value = board_read_event_value,
	.write_event_value = board_write_event_value,
	.read_event_config = board_read_event_config,
	.write_event_config = board_write_event_config,
};

static struct platform_device *board_pdev;
static struct iio_dev *board_indio_dev;

static int __init board_sensor_init(void)
{
	struct board_sensor *sensor;
	int ret;

	board_pdev = platform_device_register_simple("board-sensor", -1, NULL, 0);
	if (IS_ERR(board_pdev))
		return PTR_ERR(board_pdev);
	board_indio_dev = iio_device_alloc(&board_pdev->dev, sizeof(*sensor));
	if (!board_indio_dev) {
		ret = -ENOMEM;
		goto unregister_pdev;
	}
	sensor = iio_priv(board_indio_dev);
	mutex_init(&sensor->lock);
	/*
	 * Factory-like defaults until the calibration is written: the hand
	 * away, between the thresholds, and both events on, as the daemon
	 * reads them without enabling them.
	 */
	sensor->proximity = 150;
	sensor->threshold[0] = 100;
	sensor->threshold[1] = 200;
	sensor->enabled[0] = true;
	sensor->enabled[1] = true;
	sensor->lux = 100;
	board_indio_dev->name = "board-sensor";
	board_indio_dev->info = &board_info;
	board_indio_dev->channels = board_channels;
	board_indio_dev->num_channels = ARRAY_SIZE(board_channels);
	board_indio_dev->modes = INDIO_DIRECT_MODE;
	ret = iio_device_register(board_indio_dev);
	if (ret)
		goto free_iio;
	return 0;

free_iio:
	iio_device_free(board_indio_dev);
unregister_pdev:
	platform_device_unregister(board_pdev);
	return ret;
}

static void __exit board_sensor_exit(void)
{
	iio_device_unregister(board_indio_dev);
	iio_device_free(board_indio_dev);
	platform_device_unregister(board_pdev);
}

module_init(board_sensor_init);
module_exit(board_sensor_exit);

MODULE_DESCRIPTION("Virtual board proximity and ambient light sensor");
MODULE_LICENSE("GPL");
